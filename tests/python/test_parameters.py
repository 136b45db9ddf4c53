"""Every setting goes to the camera and comes back through its getter."""

import time

import pytest

import d3
from conftest import DEPTH_ADDRESS, sim_ctl

# (name, value to set, value the getter then gives)
ROUND_TRIPS = [
    ("frame_rate", 10, 10),
    ("tof_camera_exposure_time", 600, 600),
    ("hdr", True, True),
    ("ir_gmm_gain", 77, 77),
    ("trigger_mode", d3.TriggerMode.SOFTWARE, d3.TriggerMode.SOFTWARE),
    ("tof_frequency_mode", d3.FrequencyMode.SINGLE, d3.FrequencyMode.SINGLE),
    ("rgb_camera_exposure_mode", d3.ExposureMode.MANUAL, d3.ExposureMode.MANUAL),
    ("rgb_camera_exposure_time", 500, 500),  # under the 25 fps limit
    ("rgb_camera_gain", 321, 321),
    ("rgb_camera_contrast_ratio", 250, 250),
    ("time_median_filter", d3.FilterParam(True, 5, 100), d3.FilterParam(True, 5, 100)),
    ("fly_pixe_filter", d3.FilterParam(True, 12.5, 100), d3.FilterParam(True, 12.5, 100)),
    ("confidence_filter", d3.FilterParam(False, 40, 100), d3.FilterParam(False, 40, 100)),
    ("spatial_filter", d3.FilterParam(True, 7, 100), d3.FilterParam(True, 7, 100)),
]


@pytest.mark.parametrize("name,value,expected", ROUND_TRIPS, ids=[r[0] for r in ROUND_TRIPS])
def test_setting_round_trip(colour_camera, name, value, expected):
    get, set_ = getattr(colour_camera, "get_" + name), getattr(colour_camera, "set_" + name)
    # The simulated camera keeps its settings across sessions; later tests
    # expect it free running at full rate.
    original = get()
    try:
        set_(value)
        assert get() == expected
    finally:
        set_(original)


def test_filters_switch_on_and_off_keeping_their_strength(colour_camera):
    colour_camera.set_spatial_filter(d3.FilterParam(True, 5, 100))
    colour_camera.set_spatial_filter(False)
    assert colour_camera.get_spatial_filter() == d3.FilterParam(False, 5, 100)
    colour_camera.set_spatial_filter(True)
    assert colour_camera.get_spatial_filter().enable


def test_modes_and_trigger_delay(colour_camera):
    exposure = colour_camera.get_tof_camera_exposure_time()
    colour_camera.set_tof_camera_exposure_time(500)
    assert colour_camera.get_tof_camera_exposure_mode() == d3.ExposureMode.MANUAL
    colour_camera.set_tof_camera_auto_exposure()
    assert colour_camera.get_tof_camera_exposure_mode() == d3.ExposureMode.AUTO
    colour_camera.set_delay_hard_trigger_time(12, 345)
    assert colour_camera.get_delay_hard_trigger_time() == (12, 345)
    colour_camera.set_hdr(True)
    colour_camera.set_single_integral_mode()  # fast mode cannot merge two exposures
    assert colour_camera.get_hdr() is False
    colour_camera.set_hdr(False)  # leaves fast mode
    colour_camera.set_tof_camera_exposure_time(exposure)


def test_setters_reject_wrong_types_before_reaching_the_camera(colour_camera):
    with pytest.raises(TypeError):
        colour_camera.set_frame_rate("ten")
    with pytest.raises(TypeError):
        colour_camera.set_trigger_mode(1)  # a d3.TriggerMode, not its number


def test_stored_settings_survive_a_restart(depth_camera):
    depth_camera.set_ir_gmm_gain(99)
    depth_camera.save_configure_info()
    depth_camera.set_ir_gmm_gain(5)
    depth_camera.close()
    # A power cycle: what was not stored is gone.
    sim_ctl(DEPTH_ADDRESS, "kill")
    sim_ctl(DEPTH_ADDRESS, "restart")
    cam = open_when_back(DEPTH_ADDRESS)
    try:
        assert cam.get_ir_gmm_gain() == 99
    finally:
        cam.close()


def open_when_back(address, seconds=20):
    deadline = time.monotonic() + seconds
    while True:
        try:
            return d3.open(address)
        except d3.Error:
            if time.monotonic() > deadline:
                raise
