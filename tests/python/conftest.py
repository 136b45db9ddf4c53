"""Simulated cameras for the d3 module's tests: one d3sim process for the
whole run, on this suite's own loopback block and discovery port, so it can
run beside the other network tests."""

import os
import queue
import shutil
import signal
import subprocess
import threading
import time

import pytest

BASE = "127.0.120"
COLOUR_ADDRESS = BASE + ".2"  # model 3, 1920x1080 colour
DEPTH_ADDRESS = BASE + ".3"  # model 1, depth only
DISCOVERY_PORT = "48820"

# The SDK reads these at every search, so setting them before the first
# search is enough.
os.environ["D3_DISCOVERY_PORT"] = DISCOVERY_PORT
os.environ["D3_DISCOVERY_ADDRESSES"] = "127.255.255.255"

import d3  # noqa: E402  (after the environment it reads)

# Frame and reply waits long enough for a loaded build machine: the first
# frame of a stream can take a second there.
SDK_TIMEOUT_MS = 5000
d3.set_timeout(SDK_TIMEOUT_MS)


def d3sim_path():
    path = os.environ.get("D3SIM") or shutil.which("d3sim")
    if not path:
        pytest.fail("set D3SIM to the d3sim program")
    return path


def read_lines_until(proc, count, prefix, seconds):
    """Lines of proc's output until `count` of them start with `prefix`."""
    lines = queue.Queue()
    # A thread reads, so the wait below can have a deadline.
    threading.Thread(target=lambda: [lines.put(line) for line in proc.stdout] + [lines.put(None)],
                     daemon=True).start()
    seen, found = [], 0
    deadline = time.monotonic() + seconds
    while found < count:
        try:
            line = lines.get(timeout=max(0.0, deadline - time.monotonic()))
        except queue.Empty:
            raise TimeoutError(f"d3sim printed only {seen!r}") from None
        if line is None:
            raise RuntimeError(f"d3sim ended: {seen!r} {proc.stderr.read()}")
        seen.append(line.strip())
        found += line.startswith(prefix)
    return seen


@pytest.fixture(scope="session")
def simulator(tmp_path_factory):
    """Two cameras, colour (model 3) and depth-only (model 1); yields their lines."""
    state = tmp_path_factory.mktemp("d3sim-state")
    proc = subprocess.Popen(
        [d3sim_path(), "--cameras", "2", "--models", "3,1", "--base-address", COLOUR_ADDRESS,
         "--discovery-port", DISCOVERY_PORT, "--state", str(state), "--fps", "25", "--reboot-ms", "300"],
        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    try:
        yield read_lines_until(proc, 2, "camera ", 30)
    finally:
        proc.send_signal(signal.SIGINT)
        try:
            proc.wait(timeout=30)
        except subprocess.TimeoutExpired:
            proc.kill()
            proc.wait()


def sim_ctl(address, *words):
    """One fault command to a running simulated camera; returns its answer."""
    done = subprocess.run([d3sim_path(), "ctl", address, *words], capture_output=True, text=True, timeout=30)
    assert done.returncode == 0, done.stderr
    return done.stdout.strip()


@pytest.fixture
def colour_camera(simulator):
    with d3.open(COLOUR_ADDRESS) as cam:
        yield cam


@pytest.fixture
def depth_camera(simulator):
    with d3.open(DEPTH_ADDRESS) as cam:
        yield cam
