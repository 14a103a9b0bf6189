# SPDX-License-Identifier: Apache-2.0
import os
import pathlib

import numpy as np
import pytest

import qzmath


@pytest.mark.parametrize("ending, carries", [("ply", "normals colors border"), ("obj", "normals colors"),
                                             ("csv", "normals colors border"), ("xyz", "")])
@pytest.mark.parametrize("offset", [0.0, 4.5e6])
def test_clouds_come_back(tmp_path, rng, ending, carries, offset):
    points = rng.normal(size=(50, 3)) + offset
    if offset == 0.0:
        points = points.astype(np.float32)
    all_of_it = dict(normals=rng.normal(size=(50, 3)).astype(np.float32),
                     colors=rng.integers(0, 256, (50, 3)).astype(np.uint8), border=rng.integers(0, 2, 50) > 0)
    given = {name: all_of_it[name] for name in carries.split()}
    path = tmp_path / f"cloud.{ending}"
    qzmath.write_points(path, points, **given)
    cloud = qzmath.read_points(path)
    assert np.array_equal(cloud.points, points)
    for name in all_of_it:
        back = getattr(cloud, name)
        assert (back is None) == (name not in given) and (back is None or np.array_equal(back, given[name])), name


@pytest.mark.parametrize("ending", ["ply", "obj", "stl", "gltf", "glb"])
@pytest.mark.parametrize("offset", [0.0, 4.5e6])
def test_meshes_come_back(tmp_path, rng, ending, offset):
    vertices = rng.normal(size=(40, 3)) + offset
    mesh = qzmath.Mesh(vertices, rng.permutation(39).reshape(13, 3) + 1, colors=rng.integers(0, 256, (40, 3)))
    mesh.save(tmp_path / f"mesh.{ending}")
    back = qzmath.read_mesh(tmp_path / f"mesh.{ending}")
    # STL keeps the origin as a note only.
    middle = mesh.origin if ending == "stl" else 0.0
    corners, expected = back.vertices[back.triangles], vertices[mesh.triangles] - middle
    assert np.abs(corners - expected).max() < 1e-6
    assert ending in ("stl", "obj") or back.colors is not None


def test_pages_and_pictures_show_the_mesh(tmp_path, rng):
    mesh = qzmath.Mesh(rng.normal(size=(40, 3)), rng.permutation(39).reshape(13, 3) + 1)
    for ending in ("html", "PNG"):
        mesh.save(tmp_path / f"<i>.{ending}")
    page = (tmp_path / "<i>.html").read_text()
    assert page.lower().startswith("<!doctype html>") and "13 triangles" in page and "<i>" not in page
    assert (tmp_path / "<i>.PNG").read_bytes().startswith(b"\x89PNG")


@pytest.mark.parametrize("call, error, words", [
    (lambda d: qzmath.read_points(d / "none.ply"), FileNotFoundError, "none.ply"),
    (lambda d: qzmath.read_mesh(d), IsADirectoryError, ""),
    (lambda d: qzmath.read_points(d / "text.ply"), ValueError, "PLY|ply"),
    (lambda d: qzmath.read_points(d / "text.xyz", columns="x,y"), ValueError, "column"),
    (lambda d: qzmath.read_points(d / "text.doc"), ValueError, "doc"),
    (lambda d: qzmath.read_points("a\0b.ply"), ValueError, "path"),
    (lambda d: qzmath.read_points(3), TypeError, "path"),
    (lambda d: qzmath.read_points(b"bytes.ply"), TypeError, "path"),
    (lambda d: qzmath.write_points(d / "x.las", [[0, 0, 0]]), (ValueError, OSError), "las"),
    (lambda d: qzmath.write_points(d / "no" / "x.ply", [[0, 0, 0]]), OSError, ""),
    (lambda d: qzmath.write_points(d / "x.ply", [[0, 0, 0]], normals=[[0, 0]]), ValueError, "normals"),
    (lambda d: qzmath.Mesh([[0, 0, 0]], [[0, 0, 1]]), ValueError, "from 0 to 0, but one is 1"),
    (lambda d: qzmath.Mesh([[0, 0, 0]], [[0, 0, 0.5]]), TypeError, "integers"),
    (lambda d: qzmath.Mesh([[0, 0, 0]], [[0, 0, 0]]).save(d / "x.tif"), ValueError, "tif"),
    (lambda d: qzmath.Mesh([[0, 0, 0]], [[0, 0, 0]], report=3), TypeError, "report"),
])
def test_what_cannot_be_read_or_written_is_said(tmp_path, call, error, words):
    for name in ("text.ply", "text.xyz", "text.doc"):
        (tmp_path / name).write_text("some words\n")
    with pytest.raises(error, match=words):
        call(tmp_path)


def test_paths_are_those_of_python(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    for path in ("plain.ply", pathlib.Path("über, 點.ply")):
        qzmath.write_points(path, [[1, 2, 3]])
        assert os.path.exists(path) and len(qzmath.read_points(path)) == 1
