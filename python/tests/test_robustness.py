# SPDX-License-Identifier: Apache-2.0
import gc
import os
import random
import resource
import subprocess
import sys
import threading

import numpy as np
import pytest

import qzmath

HAS_ASAN = "libasan" in os.environ.get("LD_PRELOAD", "")
N = 300
CLOUD = qzmath.sample("sphere", N)
SMALL = np.eye(4)[:, :3] + 0.1


class Odd:
    """Claims to be everything."""

    def __array__(self, *_, **__):
        raise RuntimeError("no array")

    def __index__(self):
        raise RuntimeError("no index")

    def __float__(self):
        raise RuntimeError("no float")


# What stands in the place of a right argument.
NASTY = [
    None, True, -1, 0, 1, 7, 2**31, 2**63, -2**70, 1e308, 0.5, float("nan"), float("inf"), "", "auto", "x" * 1000,
    "nul\0", b"bytes", [], [[]], [[[]]], {}, {"a": 1}, object(), Odd(), (), (1, 2), range(3), Exception, lambda *_: True,
    lambda: None, np.zeros(0), np.zeros((0, 3)), np.zeros((3, 0)), np.zeros((2, 3, 3)), np.zeros(()), np.float32(2),
    np.zeros((N, 3)), np.full((N, 3), np.nan), np.full((N, 3), 1e300), np.full((N, 3), 1e-300), np.ones((N, 3), "i8"),
    np.zeros((N, 3), object), np.zeros((N, 3), "S3"), np.zeros((N, 3), "M8[s]"), np.zeros((N, 3), complex),
    np.zeros((N, 3), [("x", "f4")]), np.broadcast_to(np.float32(1), (N, 3)), CLOUD.points[::-1], CLOUD.points.T,
    np.zeros((2**40, 0)), np.arange(12).reshape(4, 3), np.array([0, 2, 1]), np.array([2**40]), np.array([-5]),
    np.ma.masked_all((N, 3)), memoryview(b"12345678"), CLOUD, SMALL, -SMALL,
]


def system():
    return qzmath.LinearSystem(2, [7])


def complete():
    whole = system()
    whole.add_equations([0, 2, 3], [0, 7, 1], [2.0, 1.0, 3.0])
    return whole


def cases(folder):
    """Functions with right arguments, which end soon also when one of them is another one."""
    limits = dict(depth=3, memory_limit=10**8)
    file = str(folder / "cloud.ply")
    qzmath.write_points(file, SMALL)
    core = dict(refine=True, all_components=True, trim_distance=2.0, largest_hole=0.2, smallest_component=0.1,
                outlier_removal=3.0, simplify_error=0.1, vertex_normals=True, vertex_density=True, viewpoint=(0, 0, 9),
                boundary="auto", input_normals="auto", normal_neighbours=8, threads=1, solver="auto", tolerance=1e-3,
                border=np.zeros(N), use_center=True, subdivision=1.0, kernel_scale=0.9, density_delta=2, levels=-1)
    return [
        (qzmath.reconstruct, dict(points=CLOUD.points, normals=CLOUD.normals, colors=np.zeros((N, 3), "u1"), **limits)),
        (qzmath.reconstruct, dict(points=CLOUD.points, progress=lambda *_: False, **limits, **core)),
        (qzmath.estimate_reconstruction, dict(points=CLOUD.points, normals=CLOUD.normals, depth=3, boundary="auto")),
        (qzmath.sample, dict(shape="torus", n=10, noise=0.1, density_ratio=2.0, seed=1)),
        (qzmath.estimate_normals, dict(points=CLOUD.points, k=9, radius=0.5, orient="viewpoint", viewpoint=(1, 2, 3),
                                       threads=1, progress=None)),
        (qzmath.estimate_curvatures, dict(points=CLOUD.points, normals=CLOUD.normals, k=9, radius=None, threads=1)),
        (qzmath.fit_plane, dict(points=SMALL, method="consensus", inlier_distance=0.1, confidence=0.9, seed=1)),
        (qzmath.fit_line, dict(points=SMALL, method="robust", through=(0, 0, 0), max_trials=9)),
        (qzmath.fit_circle, dict(points=SMALL, method="robust", through=SMALL[:1], tangents=SMALL[1:2])),
        (qzmath.fit_polyline, dict(segments=[SMALL, SMALL + 1], tolerance=0.01)),
        (qzmath.quadratic_program, dict(h=np.eye(3), c=np.ones(3), a_eq=np.ones((1, 3)), b_eq=[1.0], a_ge=np.eye(3),
                                        b_ge=np.zeros(3), lower=np.zeros(3), upper=np.ones(3), start=np.ones(3),
                                        tolerance=0.0, max_iterations=50)),
        (qzmath.optimize_min_max, dict(functions=[lambda p: p[0]], start=(0, 0, 0), lower=(-1,) * 3, upper=(1,) * 3,
                                       projector=lambda p: p, tolerance=1e-5, max_steps=2, attempts=2)),
        (qzmath.project_points, dict(points=SMALL, onto=SMALL)),
        (qzmath.project_points, dict(points=SMALL, onto=qzmath.Mesh(SMALL, [[0, 1, 2]]), threads=1, progress=None)),
        (qzmath.read_points, dict(path=file, columns="", progress=None)),
        (qzmath.read_mesh, dict(path=file)),
        (qzmath.write_points, dict(path=file + ".csv", points=SMALL, normals=SMALL, colors=SMALL / 2, border=[0] * 4)),
        (qzmath.Mesh, dict(vertices=SMALL, triangles=[[0, 1, 2]], normals=SMALL, colors=SMALL / 2, density=np.ones(4),
                           origin=(0, 0, 0))),
        (qzmath.Mesh(SMALL, [[0, 1, 2]]).render, dict(size=16, view=(0, 0))),
        (qzmath.LinearSystem, dict(free=[1, 2], fixed=[3], symmetric=True, positive_definite=False)),
        (lambda **given: system().add_equations(**given), dict(indptr=[0, 1], vertices=[1], coefficients=[1.0])),
        (complete().solve, dict(fixed=[1.0], right=[1.0, 2.0], solver="decomposing", tolerance=1e-6, max_iterations=9,
                                boundaries=[1], semidefinite_lift=0.0, threads=1, progress=None)),
    ]


def test_wrong_calls_raise_and_nothing_else(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    monkeypatch.setattr(sys, "stdin", None)
    chance = random.Random(1)
    functions = cases(tmp_path)
    endings = {}
    for number in range(2000):
        function, right = functions[number % len(functions)]
        given = dict(right)
        for name in chance.sample(list(given), min(len(given), chance.choice((1, 1, 2)))):
            if chance.random() < 0.1:
                del given[name]
            elif name != "memory_limit":
                given[name] = chance.choice(NASTY)
        try:
            function(**given)
            ending = "right"
        except (TypeError, ValueError, MemoryError, OSError, RuntimeError, ArithmeticError) as error:
            ending = type(error).__name__
            assert str(error), (function, given)
            # What is wrong with numpy's own conversions is said by numpy.
            assert "incompatible function arguments" not in str(error), (function, given, error)
        endings[ending] = endings.get(ending, 0) + 1
    assert endings["TypeError"] > 200 and endings["ValueError"] > 200 and endings["right"] > 100, endings


def resident():
    with open("/proc/self/statm") as file:
        return int(file.read().split()[1]) * resource.getpagesize()


@pytest.mark.skipif(HAS_ASAN, reason="a quarantine keeps what was freed")
def test_memory_and_references_are_stable():
    points, normals, callback = CLOUD.points.copy(), CLOUD.normals.copy(), lambda *_: False
    whole = complete()

    def call(number):
        mesh = qzmath.reconstruct(points, normals, depth=3, threads=1, progress=callback)
        array = mesh.triangles
        del mesh
        assert array.min() == 0         # the memory outlives the mesh
        qzmath.estimate_normals(points, k=5, threads=1)
        whole.solve([1.0], [1.0, number])
        for wrong in (dict(points=points, depth=-1), dict(points=points[:1]), dict(points=points, progress=raising)):
            with pytest.raises((ValueError, LookupError)):
                qzmath.reconstruct(**wrong)

    def raising(*_):
        raise LookupError

    for number in range(100):
        call(number)
    gc.collect()
    before, references = resident(), [sys.getrefcount(one) for one in (points, normals, callback, None)]
    for number in range(1000):
        call(number)
    gc.collect()
    after = [sys.getrefcount(one) for one in (points, normals, callback, None)]
    assert after[:3] == references[:3] and abs(after[3] - references[3]) < 100
    assert resident() - before < 8e6


def test_one_system_serves_several_threads():
    whole, answers = complete(), []

    def work():
        for number in range(200):
            first = whole.solve([1.0], [float(number), 0.0], progress=lambda *_: False)[0]
            answers.append(float(2 * first + 1 - number))
            whole.matrices()
            with pytest.raises(ValueError):
                whole.add_equations([0, 1], [0], [1.0])

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert len(answers) == 800 and max(map(abs, answers)) < 1e-12


ENDING = """
import threading, qzmath
cloud, begun = qzmath.sample("torus", 30000), threading.Semaphore(0)
def work(progress):
    while True:
        begun.release()
        qzmath.reconstruct(cloud, depth=8, progress=progress)
for progress in (None, lambda fraction, phase: None):
    threading.Thread(target=work, args=(progress,), daemon=True).start()
begun.acquire(), begun.acquire()
"""


def test_the_interpreter_ends_while_threads_work():
    fork = "import os\nchild = os.fork()\nif child: assert os.waitpid(child, 0)[1] == 0\n"
    # A lock of the address sanitizer that another thread holds stays locked in a child.
    for last in ("", "", "" if HAS_ASAN else fork):
        ended = subprocess.run([sys.executable, "-c", ENDING + last], capture_output=True, text=True, timeout=120)
        assert (ended.returncode, ended.stderr) == (0, "")
