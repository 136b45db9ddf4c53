"""Firmware updates from Python: progress, the new version after the
camera's restart, and each refusal raised with its code and reason."""

import os
import subprocess

import pytest

import d3
from conftest import DEPTH_ADDRESS, sim_ctl

WORD = "qm-tbrwkex"


def image(tmp_path, version, model="1"):
    path = tmp_path / f"fw-{version}-{model}.bin"
    d3ctl = os.environ.get("D3CTL", "d3ctl")
    subprocess.run([d3ctl, "firmware-image", "--version", version, "--model", model, "--size", "65536",
                    "--out", str(path)], check=True, capture_output=True, timeout=30)
    return path.read_bytes()


def test_update_reports_progress_and_the_new_version(simulator, tmp_path):
    steps = []
    result = d3.update_firmware(DEPTH_ADDRESS, image(tmp_path, "3.1.4"), WORD, progress=steps.append)
    assert result.version_after == "3.1.4" and result.written and result.rebooted
    assert {d3.FirmwareStep.SENDING, d3.FirmwareStep.VERIFYING, d3.FirmwareStep.REBOOTING} <= {p.step for p in steps}
    sent = [p.bytes_sent for p in steps if p.step == d3.FirmwareStep.SENDING]
    assert sent == sorted(sent) and sent[-1] == len(image(tmp_path, "3.1.4"))
    found = [e for e in d3.find_devices() if e.endswith(DEPTH_ADDRESS)]
    with d3.open(found[0]) as cam:
        assert cam.get_version()[0] == "3.1.4"


@pytest.mark.parametrize("fault, code, reason", [
    ("word", d3.ReturnCode.ACCESS_DENIED, "access word"),
    ("model", d3.ReturnCode.FIRMWARE_REJECTED, "model"),
    ("corrupt", d3.ReturnCode.INVALID_PARAMETER, "checksum"),
    ("badflash", d3.ReturnCode.FIRMWARE_WRITE_FAILED, "flash"),
])
def test_refusals_raise_their_code_and_reason(simulator, tmp_path, fault, code, reason):
    data = image(tmp_path, "4.0.0", "3" if fault == "model" else "1")
    if fault == "corrupt":
        data = data[:-1] + bytes([data[-1] ^ 0xFF])
    if fault == "badflash":
        sim_ctl(DEPTH_ADDRESS, "firmware", "badflash")
    with pytest.raises(d3.Error) as caught:
        d3.update_firmware(DEPTH_ADDRESS, data, "wrong" if fault == "word" else WORD)
    assert caught.value.code == code
    assert reason in caught.value.text.lower(), caught.value.text


def test_an_exception_in_the_progress_callback_reaches_the_caller(simulator, tmp_path):
    def stop(progress):
        raise KeyError("stop here")

    with pytest.raises(KeyError):
        d3.update_firmware(DEPTH_ADDRESS, image(tmp_path, "5.0.0"), WORD, write=False, reboot=False, progress=stop)
