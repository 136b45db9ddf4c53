"""Frames as NumPy arrays: shapes, types, content, and who owns the memory."""

import gc
import threading

import numpy as np
import pytest

import d3
from conftest import COLOUR_ADDRESS


def test_depth_ir_amplitude_and_points_of_one_frame(colour_camera):
    colour_camera.start_stream()
    f = colour_camera.get_tof_data(depth=True, points=True, ir=True, amplitude=True)
    assert f.depth.shape == (480, 640) and f.depth.dtype == np.uint16
    assert f.ir.shape == (480, 640) and f.ir.dtype == np.uint8
    assert f.amplitude.shape == (480, 640) and f.amplitude.dtype == np.uint16
    assert f.points.shape == (480 * 640, 3) and f.points.dtype == np.float32
    assert f.rgb is None and f.rgb_points is None

    # The scene is in front of the camera: most pixels measure something.
    measured = f.depth > 0
    assert measured.mean() > 0.5 and 300 < f.depth[measured].mean() < 10000
    # Points are in the depth image's order, z being the depth.
    np.testing.assert_array_equal(f.points[:, 2], f.depth.ravel().astype(np.float32))
    assert f.valid_points == int(measured.sum())
    assert not f.points[~measured.ravel()].any()


def test_buffers_not_asked_for_are_none(colour_camera):
    colour_camera.start_stream()
    f = colour_camera.get_tof_data(depth=False, points=False, ir=True, amplitude=False)
    assert f.depth is None and f.points is None and f.amplitude is None and f.valid_points is None
    assert f.ir.shape == (480, 640)


def test_colour_and_registered_frames(colour_camera):
    colour_camera.convert_rgb_to_depth_enable(True)
    colour_camera.convert_depth_to_rgb_enable(True)
    colour_camera.start_stream()
    f = colour_camera.get_rgb_tof_data(points=True)
    assert f.rgb.shape == (1080, 1920, 3) and f.rgb.dtype == np.uint8
    assert f.rgb.std() > 5  # a picture, not a constant
    assert f.depth.shape == (480, 640) and f.points.shape == (480 * 640, 3)

    aligned = colour_camera.get_rgb_to_depth_data(rgb_points=True, depth=True)
    assert aligned.rgb.shape == (480, 640, 3)
    assert aligned.rgb_points.dtype == d3.RGB_POINT_DTYPE and aligned.rgb_points.shape == (480 * 640,)
    # Each coloured point carries its pixel's depth and colour.
    np.testing.assert_array_equal(aligned.rgb_points["z"], aligned.depth.ravel().astype(np.float32))
    seen = aligned.rgb_points["z"] > 0
    np.testing.assert_array_equal(aligned.rgb_points["r"][seen], aligned.rgb[..., 0].ravel()[seen])
    assert 0 < aligned.valid_rgb_points <= int(seen.sum())

    projected = colour_camera.get_depth_to_rgb_data(rgb=True)
    assert projected.depth_to_rgb.shape == (1080, 1920) and projected.depth_to_rgb.dtype == np.uint16
    assert projected.rgb.shape == (1080, 1920, 3)
    assert (projected.depth_to_rgb > 0).any()


def test_arrays_own_their_buffers_and_outlive_everything(simulator):
    cam = d3.open(COLOUR_ADDRESS)
    cam.start_stream()
    first = cam.get_tof_data(points=True)
    depth, points = first.depth, first.points
    # NumPy views the buffer the SDK filled: no copy of its own.
    assert not depth.flags.owndata and depth.base is not None
    assert not points.flags.owndata
    kept_depth, kept_points = depth.copy(), points.copy()
    for _ in range(5):
        later = cam.get_tof_data(points=True)
        assert not np.shares_memory(later.depth, depth)
    del first, later
    cam.stop_stream()
    cam.close()
    gc.collect()
    # Later frames, the session's end and the Frame's end changed nothing.
    np.testing.assert_array_equal(depth, kept_depth)
    np.testing.assert_array_equal(points, kept_points)
    # The arrays are the caller's to change.
    depth[:] = 7
    assert (depth == 7).all()


def test_frame_wait_lets_other_threads_run(colour_camera):
    """In software trigger mode a frame call waits for the trigger; the trigger
    comes from another Python thread, which can run only if the wait releases
    the GIL."""
    colour_camera.set_trigger_mode(d3.TriggerMode.SOFTWARE)
    colour_camera.start_stream()
    try:
        waiting = threading.Event()
        results = []

        def reader():
            waiting.set()
            results.append(colour_camera.get_tof_data())

        t = threading.Thread(target=reader)
        t.start()
        assert waiting.wait(10)
        # Trigger until the reader's frame is out (a trigger sent before the
        # reader really waits produces a frame it also takes).
        while t.is_alive():
            colour_camera.soft_trigger()
            t.join(0.2)
        assert results and results[0].depth.shape == (480, 640)
    finally:
        colour_camera.stop_stream()
        colour_camera.set_trigger_mode(d3.TriggerMode.NORMAL)


def test_stream_statistics_count_the_frames_read(simulator):
    for tcp in (True, False):
        with d3.open(COLOUR_ADDRESS, tcp=tcp) as cam:
            cam.start_stream()
            cam.reset_stream_stats()
            for _ in range(10):
                cam.get_tof_data(ir=False)
            stats = cam.get_stream_stats()
            assert stats.frames_delivered == 10
            # The first frame read may have arrived before the reset.
            assert stats.frames_complete >= 9
            assert stats.bytes_received > 10 * 480 * 640 * 2
            assert stats.udp == (not tcp)
            if not tcp:
                assert stats.packets_received > 0 and stats.local_port > 0


def test_save_ply_writes_the_measured_points(colour_camera, tmp_path):
    colour_camera.start_stream()
    f = colour_camera.get_tof_data(points=True)
    path = tmp_path / "cloud.ply"
    d3.save_ply(str(path), f.points, binary=False)
    text = path.read_text()
    assert f"element vertex {f.valid_points}\n" in text
    header, body = text.split("end_header\n")
    first = np.array(body.splitlines()[0].split(), dtype=np.float32)
    np.testing.assert_allclose(first, f.points[f.points[:, 2] > 0][0], rtol=1e-4)

    # Any float array converts; coloured points write their colour.
    d3.save_ply(str(tmp_path / "list.ply"), [[1.0, 2.0, 3.0], [0.0, 0.0, 0.0]], binary=False)
    assert "element vertex 1\n" in (tmp_path / "list.ply").read_text()
    coloured = np.zeros(2, dtype=d3.RGB_POINT_DTYPE)
    coloured[0] = (1.0, 2.0, 3.0, 10, 20, 30, 40)
    d3.save_ply(str(tmp_path / "rgb.ply"), coloured, binary=False)
    assert "property uchar red" in (tmp_path / "rgb.ply").read_text()

    with pytest.raises(ValueError):
        d3.save_ply(str(tmp_path / "bad.ply"), np.zeros((4, 2), dtype=np.float32))
    with pytest.raises(d3.Error) as caught:
        d3.save_ply(str(tmp_path / "missing" / "x.ply"), f.points)
    assert caught.value.code == d3.ReturnCode.FILE_ERROR
