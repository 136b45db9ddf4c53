#!/usr/bin/env python3
"""Reads one depth frame from a camera and prints its shape and mean distance."""

import argparse
import sys

import d3

parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("device", nargs="?", help='"serial:ip", serial or address (default: the first camera found)')
args = parser.parse_args()

device = args.device
if device is None:
    cameras = d3.find_devices()
    if not cameras:
        sys.exit("depth_mean: no camera found")
    device = cameras[0]

try:
    with d3.open(device) as cam:
        cam.start_stream()
        depth = cam.get_tof_data().depth  # HxW uint16 millimetres, 0 = no measurement
        print(f"{cam.get_device_sn()}: depth {depth.shape} mean {depth.mean():.1f} mm, "
              f"{depth[depth > 0].mean():.1f} mm over measured pixels")
except d3.Error as err:
    sys.exit(f"depth_mean: {err}")
