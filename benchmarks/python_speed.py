# SPDX-License-Identifier: Apache-2.0
"""
What the Python package adds to the library's own time, and how soon Ctrl-C ends a call:

    PYTHONPATH=build/release/python /usr/bin/python3 benchmarks/python_speed.py
"""
import os
import signal
import statistics
import threading
import time

import numpy as np

import qzmath
from qzmath import _qzmath


def seconds(call):
    begin = time.perf_counter()
    result = call()
    return time.perf_counter() - begin, result


def laplacian(side):
    """Row begins, vertices and coefficients on a cube of side^3 vertices."""
    numbers = np.arange(side**3, dtype=np.int32).reshape(side, side, side)
    vertices = np.stack([numbers] + [np.roll(numbers, step, axis) for axis in range(3) for step in (1, -1)], 3)
    coefficients = np.tile([6.001, -1, -1, -1, -1, -1, -1], side**3)
    return np.arange(0, 7 * side**3 + 1, 7), vertices.reshape(-1), coefficients


def delay_of_interruption(cloud, after):
    pressed = []

    def press():
        pressed.append(time.perf_counter())
        os.kill(os.getpid(), signal.SIGINT)

    timer = threading.Timer(after, press)
    timer.start()
    try:
        qzmath.reconstruct(cloud, depth=9)
        timer.cancel()
        return None
    except KeyboardInterrupt:
        return time.perf_counter() - pressed[0]


cloud = qzmath.sample("sphere", 100000)
added = []
for _ in range(7):
    wall, mesh = seconds(lambda: qzmath.reconstruct(cloud, depth=8))
    added.append(wall / mesh.report.seconds - 1)
print(f"reconstruct, 100000 points, depth 8: {100 * statistics.median(added):.2f} % more than the library takes")

points, place = qzmath.sample("sphere", 1000000).points, np.zeros(3)
added = []
for _ in range(5):
    bare, _ = seconds(lambda: _qzmath.estimate_normals(points, 20, 0.0, 2, place, 0, None))
    whole, _ = seconds(lambda: qzmath.estimate_normals(points))
    added.append(whole / bare - 1)
print(f"estimate_normals, 1000000 points: {100 * statistics.median(added):.1f} % more than the library takes")

arrays = laplacian(100)
system = qzmath.LinearSystem(1000000, symmetric=True, positive_definite=True)
print(f"a Laplacian of 1000000 vertices is stated in {seconds(lambda: system.add_equations(*arrays))[0]:.2f} s")

found = [delay_of_interruption(cloud, 0.05 + 0.12 * number) for number in range(30)]
delays = [delay for delay in found if delay is not None]
print(f"Ctrl-C, depth 9, {len(delays)} moments: {max(delays):.3f} s at most, {statistics.median(delays):.3f} s in the middle")
