"""The link-lost callback runs Python code on an SDK thread."""

import sys
import threading

import d3
from conftest import COLOUR_ADDRESS, sim_ctl


def test_callback_reports_the_lost_camera_and_reconnect_brings_it_back(colour_camera):
    sn = colour_camera.get_device_sn()
    colour_camera.start_stream()
    lost = threading.Event()
    calls = []

    def on_lost(serial, message):
        calls.append((serial, message, threading.current_thread() is threading.main_thread()))
        lost.set()

    d3.set_link_lost_callback(on_lost)
    try:
        sim_ctl(COLOUR_ADDRESS, "kill")
        assert lost.wait(20), "no link-lost call"
        serial, message, on_main = calls[0]
        assert serial == sn and message and not on_main
        # Afterwards every call says the link is gone.
        try:
            colour_camera.get_tof_data()
            raise AssertionError("a frame after the link was lost")
        except d3.Error as err:
            assert err.code == d3.ReturnCode.NETWORK_ERROR
        sim_ctl(COLOUR_ADDRESS, "restart")
        colour_camera.reconnect(15000)
        colour_camera.start_stream()
        assert colour_camera.get_tof_data().depth.shape == (480, 640)
    finally:
        d3.set_link_lost_callback(None)


def test_a_failing_callback_is_reported_and_the_sdk_goes_on(colour_camera, monkeypatch):
    reported = threading.Event()
    errors = []

    def unraisable(info):
        errors.append(info.exc_value)
        reported.set()

    # Python reports exceptions nobody can catch through this hook.
    monkeypatch.setattr(sys, "unraisablehook", unraisable)

    def broken(serial, message):
        raise RuntimeError("callback bug")

    d3.set_link_lost_callback(broken)
    try:
        sim_ctl(COLOUR_ADDRESS, "kill")
        assert reported.wait(20)
        assert isinstance(errors[0], RuntimeError) and str(errors[0]) == "callback bug"
        sim_ctl(COLOUR_ADDRESS, "restart")
        colour_camera.reconnect(15000)
        assert colour_camera.get_device_sn()
    finally:
        d3.set_link_lost_callback(None)
    try:
        d3.set_link_lost_callback(42)
        raise AssertionError("a number taken as a callback")
    except TypeError:
        pass
