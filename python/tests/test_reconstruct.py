# SPDX-License-Identifier: Apache-2.0
import os
import pickle
import signal
import subprocess
import threading
import tracemalloc
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest

import qzmath
from conftest import assert_same_mesh


@pytest.fixture(scope="module")
def mesh(torus):
    return qzmath.reconstruct(torus, depth=5)


@pytest.mark.parametrize("options, arguments", [
    ([], dict(depth=None)),
    (["--depth", "6", "--density", "--threads", "1"], dict(depth=6, vertex_density=True, threads=1)),
    (["--cell-size", "0.1", "--open", "--no-refine", "--simplify", "0.2"],
     dict(cell_size=0.1, boundary="open", refine=False, simplify_error=0.2)),
    (["--depth", "5", "--solver", "direct", "--kernel-scale", "0.9", "--corner", "--subdivision", "1.5"],
     dict(depth=5, solver="direct", accelerated=False, kernel_scale=0.9, use_center=False, subdivision=1.5)),
])
@pytest.mark.parametrize("offset", [0.0, 500000.0])
def test_is_the_mesh_of_the_program_bit_by_bit(torus, tmp_path, options, arguments, offset):
    if "QZ_QZRECON" not in os.environ:
        pytest.skip("there is no program to compare with")
    points = torus.points if offset == 0.0 else torus.points.astype(float) + [offset, -offset, 0.0]
    colors = np.uint8(255 * (torus.points - torus.points.min()) / np.ptp(torus.points))
    qzmath.write_points(tmp_path / "cloud.ply", points, torus.normals, colors)
    subprocess.run([os.environ["QZ_QZRECON"], tmp_path / "cloud.ply", "-o", tmp_path / "program.ply", "--quiet",
                    "--normals", *options], check=True)
    ours = qzmath.reconstruct(points, torus.normals, colors, **arguments)
    ours.save(tmp_path / "package.ply")
    assert (tmp_path / "package.ply").read_bytes() == (tmp_path / "program.ply").read_bytes()


@pytest.mark.parametrize("changed", [
    lambda a: a.astype(np.float64), np.asfortranarray, lambda a: np.repeat(a, 2, 0)[::2], lambda a: a[::-1].copy()[::-1],
    lambda a: np.hstack([a, a])[:, :3], lambda a: a.astype(">f4"), lambda a: a.tolist(),
    lambda a: np.frombuffer(b"." + a.tobytes(), np.uint8)[1:].view(np.float32).reshape(-1, 3),
], ids="float64 fortran strided reversed sliced byteswapped list misaligned".split())
def test_layouts_of_the_input_do_not_matter(torus, mesh, changed):
    assert_same_mesh(qzmath.reconstruct(changed(torus.points), changed(torus.normals), depth=5), mesh)


@pytest.mark.parametrize("dtype, copied", [(np.float32, 0.0), (np.float64, 0.0), (np.float16, 2.0)])
def test_only_what_cannot_be_read_in_place_is_copied(dtype, copied):
    cloud = qzmath.sample("sphere", 300000)
    points, normals = np.ascontiguousarray(cloud.points, dtype), cloud.normals
    tracemalloc.start()
    qzmath.reconstruct(points, normals, depth=2, refine=False)
    peak = tracemalloc.get_traced_memory()[1]
    tracemalloc.stop()
    assert abs(peak / points.nbytes - copied) < 0.1


def test_the_mesh_carries_what_was_asked_for(torus):
    full = qzmath.reconstruct(torus.points, torus.normals, (torus.points * 0.3 + 0.5).clip(0, 1), depth=4,
                              vertex_density=True)
    bare = qzmath.reconstruct(torus, depth=4, vertex_normals=False)
    assert full.colors.dtype == np.uint8 and full.density.shape == (len(full.vertices),)
    assert np.abs(full.colors / 255 - (full.vertices * 0.3 + 0.5)).mean() < 0.05
    assert np.allclose(np.linalg.norm(full.normals, axis=1), 1, atol=1e-5)
    assert bare.normals is bare.colors is bare.density is None
    with pytest.raises(AttributeError):
        full.report.depth = 3
    # What lies between the phases is little, unless others use the machine.
    assert 0.4 < sum(phase.share for phase in full.report.phases) < 1.001
    assert full.report.vertices == len(full.vertices)
    assert "<iframe srcdoc" in bare._repr_html_() and "vertices" in repr(bare)


def test_the_surface_is_that_of_the_points():
    cloud = qzmath.sample("torus", 20000)
    mesh = qzmath.reconstruct(cloud.points, depth=6)     # with estimated normals
    x, y, z = mesh.vertices.T
    assert np.abs(np.hypot(np.hypot(x, y) - 1, z) - 0.4).max() < 0.02
    a, b, c = (mesh.vertices[mesh.triangles[:, corner]] for corner in range(3))
    volume = np.einsum("ij,ij->i", a, np.cross(b, c)).sum() / 6
    assert volume == pytest.approx(2 * np.pi**2 * 0.4**2, rel=0.01)


def test_viewpoints_decide_the_side():
    plate = qzmath.sample("sheet", 5000).points
    above, below = np.array([0, 0, 9.0]), np.array([0, 0, -9.0])
    up, down = (qzmath.reconstruct(plate, depth=5, viewpoint=place) for place in (above, below))
    both = qzmath.reconstruct(np.vstack([plate, plate + np.float32([5, 0, 0])]), depth=6,
                              viewpoint=[(above, 5000), (below, 5000)])
    assert up.normals[:, 2].mean() > 0.5 and down.normals[:, 2].mean() < -0.5
    left = both.vertices[:, 0] < 2.5
    assert both.normals[left, 2].mean() > 0.5 and both.normals[~left, 2].mean() < -0.5


def test_an_estimate_tells_the_size_before(torus, mesh):
    estimate = qzmath.estimate_reconstruction(torus, depth=5)
    assert 0.4 < estimate.triangles / len(mesh.triangles) < 2.5
    assert estimate.nodes == mesh.report.nodes and estimate.memory > 1e5
    with pytest.raises(MemoryError, match="memory_limit"):
        qzmath.reconstruct(torus, depth=8, memory_limit=10**6)


@pytest.mark.parametrize("arguments, error, words", [
    (dict(points=np.zeros((4, 2))), ValueError, r"points must be .* shape \(n, 3\), not .* shape \(4, 2\)"),
    (dict(points=[]), ValueError, "points must be"),
    (dict(points=np.zeros((0, 3))), ValueError, "points is empty"),
    (dict(points=np.zeros((4, 3), object)), TypeError, "real numbers.* object"),
    (dict(points=np.zeros((4, 3), complex)), TypeError, "real numbers.* complex"),
    (dict(points="abc"), TypeError, "points must be"),
    (dict(points=None), TypeError, "points must be"),
    (dict(points=[[0, 0, 0], [1, 0]]), (TypeError, ValueError), "points must be"),
    (dict(points=np.zeros((4, 3))), ValueError, "no extent"),
    (dict(points=[[0, 0, np.nan]] * 3), ValueError, "not finite at 3 points, the first at index 0"),
    (dict(points=[[i, i, i] for i in range(9)]), ValueError, "on a line"),
    (dict(normals=np.zeros((4, 3))), ValueError, r"normals must be .*\(8000, 3\), not .*\(4, 3\)"),
    (dict(normals=np.full((8000, 3), np.inf)), ValueError, "normal"),
    (dict(colors=np.full((8000, 3), 2.0)), ValueError, "colors must be from 0 to 1"),
    (dict(colors=np.full((8000, 3), 256)), ValueError, "colors must be integers from 0 to 255, but one is 256"),
    (dict(border=[True]), ValueError, "border"),
    (dict(depth=-1), ValueError, "depth -1 is out of range: 2 to 29"),
    (dict(depth=0), ValueError, "None for one that suits"),
    (dict(depth=1, use_center=True), ValueError, "depth 1 .* use_center=True"),
    (dict(depth=2**70), ValueError, "depth must be an integer from"),
    (dict(depth=6.5), TypeError, "depth must be an integer, not float 6.5"),
    (dict(depth=True), TypeError, "depth must be an integer"),
    (dict(cell_size=-1), ValueError, "cell_size must be above 0"),
    (dict(boundary="ajar"), ValueError, "boundary must be one of 'auto', 'closed', 'open', not str 'ajar'"),
    (dict(refine=1), TypeError, "refine must be True or False"),
    (dict(trim_distance=np.nan), ValueError, "trim_distance must be a number"),
    (dict(largest_hole=2), ValueError, "largest hole is out of range"),
    (dict(outlier_removal="3"), TypeError, "outlier_removal must be a real number"),
    (dict(viewpoint=[0, 0]), ValueError, r"viewpoint must be .*\(3,\)"),
    (dict(viewpoint=[((0, 0, 1), 17)]), ValueError, "places for 17 points, expected 8000"),
    (dict(threads=-1), ValueError, "threads are out of range"),
    (dict(memory_limit=0), ValueError, "memory_limit"),
    (dict(progress=3), TypeError, "progress must be"),
    (dict(solver="fastest"), ValueError, "solver must be one of"),
    (dict(deepness=3), TypeError, "unexpected keyword argument 'deepness'"),
])
def test_wrong_arguments_are_named(torus, arguments, error, words):
    with pytest.raises(error, match=words):
        qzmath.reconstruct(**{"points": torus.points, **({} if "points" in arguments else {"normals": torus.normals}),
                              **arguments})


def test_progress_rises_and_names_phases(torus, capsys):
    seen = []
    qzmath.reconstruct(torus, depth=5, progress=lambda fraction, phase: seen.append((fraction, phase)))
    fractions = [fraction for fraction, _ in seen]
    assert fractions == sorted(fractions) and 0 <= fractions[0] and fractions[-1] <= 1
    assert "octree" in {phase for _, phase in seen}
    qzmath.reconstruct(torus, depth=4, progress=True)
    assert "100" in capsys.readouterr().err


def test_progress_cancels_and_its_exceptions_pass(torus, mesh):
    with pytest.raises(qzmath.Cancelled):
        qzmath.reconstruct(torus, depth=6, progress=lambda fraction, phase: fraction > 0.3)
    with pytest.raises(ZeroDivisionError):
        qzmath.reconstruct(torus, depth=6, progress=lambda fraction, phase: 1 / 0)
    class Undecided:
        def __bool__(self):
            raise LookupError
    with pytest.raises(LookupError):
        qzmath.reconstruct(torus, depth=6, progress=lambda fraction, phase: Undecided())
    assert_same_mesh(qzmath.reconstruct(torus, depth=5), mesh)


def test_the_keyboard_interrupts(torus):
    before = signal.signal(signal.SIGINT, signal.default_int_handler)
    begun = threading.Event()
    def press():
        begun.wait()
        os.kill(os.getpid(), signal.SIGINT)
    finger = threading.Thread(target=press)
    finger.start()
    try:
        with pytest.raises(KeyboardInterrupt):
            qzmath.reconstruct(torus, depth=10, progress=lambda fraction, phase: begun.set())
    finally:
        begun.set()
        finger.join()
        signal.signal(signal.SIGINT, before)


def test_other_threads_run_meanwhile_and_reconstruct_too(torus, mesh):
    rounds, ended = 0, threading.Event()
    def count():
        nonlocal rounds
        while not ended.is_set():
            rounds += 1
    counter = threading.Thread(target=count)
    with ThreadPoolExecutor(4) as pool:
        running = [pool.submit(qzmath.reconstruct, torus, depth=5, threads=1 + i % 3) for i in range(8)]
        counter.start()
        meshes = [one.result() for one in running]
    ended.set()
    counter.join()
    for one in meshes:
        assert_same_mesh(one, mesh)
    assert rounds > 1000


def test_mesh_and_report_are_pickled(mesh):
    copy = pickle.loads(pickle.dumps(mesh))
    assert_same_mesh(copy, mesh)
    assert copy.report == mesh.report and np.array_equal(copy.origin, mesh.origin)
