"""Discovery, the session and how failures reach Python."""

import pytest

import d3
from conftest import COLOUR_ADDRESS, DEPTH_ADDRESS


def test_search_lists_both_cameras_as_serial_and_address(simulator):
    found = d3.find_devices()
    by_ip = {entry.rsplit(":", 1)[1]: entry.rsplit(":", 1)[0] for entry in found}
    assert set(by_ip) == {COLOUR_ADDRESS, DEPTH_ADDRESS}
    # The ninth character of a serial is the model digit.
    assert by_ip[COLOUR_ADDRESS][8] == "3"
    assert by_ip[DEPTH_ADDRESS][8] == "1"
    # Every form the search gives opens the camera it names.
    with d3.open([e for e in found if e.endswith(DEPTH_ADDRESS)][0]) as cam:
        assert cam.get_device_sn() == by_ip[DEPTH_ADDRESS]


def test_identity_of_an_open_camera(colour_camera):
    sn = colour_camera.get_device_sn()
    details = colour_camera.get_device_details()
    assert details.serial == sn and details.ip == COLOUR_ADDRESS
    firmware, device = colour_camera.get_version()
    assert (firmware, device) == (details.firmware_version, details.device_version)
    assert colour_camera.is_rgb_device()
    assert colour_camera.get_image_info() == (1920, 1080)
    k = colour_camera.get_tof_camera_intrinsic_param()
    assert 400 < k.fx < 700 and 200 < k.cx < 450


def assert_raises_code(code, fn, *args):
    with pytest.raises(d3.Error) as caught:
        fn(*args)
    err = caught.value
    assert err.code == code
    assert err.text == d3.return_code_text(code)
    assert str(code.value) in str(err) and err.text in str(err)
    return err


def test_failures_raise_with_the_sdks_code_and_text(colour_camera):
    assert issubclass(d3.Error, Exception)
    assert_raises_code(d3.ReturnCode.NOT_STREAMING, colour_camera.stop_stream)
    assert_raises_code(d3.ReturnCode.INVALID_PARAMETER, colour_camera.set_frame_rate, 0)
    assert_raises_code(d3.ReturnCode.INVALID_PARAMETER, d3.set_timeout, 0)
    # The SDK keeps one session: another camera cannot be opened beside it.
    assert_raises_code(d3.ReturnCode.ALREADY_CONNECTED, d3.open, DEPTH_ADDRESS)


def test_depth_only_camera_refuses_colour_frames(depth_camera):
    assert not depth_camera.is_rgb_device()
    depth_camera.start_stream()
    assert_raises_code(d3.ReturnCode.NOT_SUPPORTED, depth_camera.get_rgb_tof_data)
    assert depth_camera.get_tof_data().depth.shape == (480, 640)


def test_calls_after_close_raise_not_connected(simulator):
    cam = d3.open(COLOUR_ADDRESS)
    cam.close()
    assert_raises_code(d3.ReturnCode.NOT_CONNECTED, cam.get_device_sn)
    assert_raises_code(d3.ReturnCode.NOT_CONNECTED, cam.get_tof_data)
    assert_raises_code(d3.ReturnCode.NOT_CONNECTED, cam.close)
    # Leaving a with block around a closed session is quiet.
    with d3.open(COLOUR_ADDRESS) as again:
        again.close()
