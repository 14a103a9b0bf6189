# SPDX-License-Identifier: Apache-2.0
"""What the page shows runs, names everything, and makes the page's picture; the programs shown run, too."""
import os
import pathlib
import re
import runpy

import pytest

import qzmath

root = pathlib.Path(os.environ.get("QZ_SOURCE_DIR", pathlib.Path(__file__).parents[2]))
page = (root / "docs/python.md").read_text()
blocks = re.findall(r"```python\n(.*?)```", page, re.DOTALL)
others = {"open3d", "trimesh", "pyvista", "meshio", "scipy.sparse"}


def test_the_page_runs(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    pytest.importorskip("PIL")
    names = {}
    for block in blocks:
        package = re.match(r"import ([\w.]+)", block)
        try:
            exec(compile(block, "docs/python.md", "exec"), names)
        except ImportError:
            assert package and package[1] in others, block
    assert names["mesh"].report.boundaries_left == 1 and names["closed"].report.is_closed
    assert names["mesh"].report.outliers_removed > 150 and len(names["fine"].triangles) > len(names["coarse"].triangles)
    from PIL import Image
    made, shown = (Image.open(file) for file in ("python.png", root / "docs/images/python.png"))
    assert made.size == shown.size


def test_the_page_lists_everything():
    listed = set(re.findall(r"`(\w+)`", page[page.index("## What there is"):]))
    assert set(qzmath.__all__) - listed == set()


@pytest.mark.parametrize("name", sorted(path.name for path in (root / "examples").glob("*.py")))
def test_examples_run(name, capsys):
    runpy.run_path(str(root / "examples" / name))
    assert capsys.readouterr().out
