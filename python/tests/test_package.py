# SPDX-License-Identifier: Apache-2.0
"""What a wheel is made of works without the folder that it was built in."""
import os
import pathlib
import shutil
import subprocess
import sys

import pytest

PROGRAM = """
import qzmath
assert qzmath.reconstruct(qzmath.sample("sphere", 2000), depth=4).report.is_closed
for line in open("/proc/self/maps"):
    if "libQZ" in line:
        print(line.split()[-1])
"""


def test_the_installed_module_finds_the_libraries_beside_it(tmp_path):
    if "QZ_BUILD_DIR" not in os.environ:
        pytest.skip("there is no build to install from")
    subprocess.run(["cmake", "--install", os.environ["QZ_BUILD_DIR"], "--component", "python", "--prefix", tmp_path],
                   check=True, stdout=subprocess.DEVNULL)
    package = tmp_path / "moved" / "qzmath"
    package.parent.mkdir()
    (tmp_path / "qzmath").rename(package)
    for file in (pathlib.Path(__file__).parents[1] / "qzmath").glob("*.py"):
        shutil.copy(file, package)
    found = subprocess.run([sys.executable, "-c", PROGRAM], check=True, capture_output=True, text=True, cwd="/",
                           env={**os.environ, "PYTHONPATH": str(package.parent)}).stdout.split()
    assert len({pathlib.Path(path).name.split(".")[0] for path in found}) == 4
    assert {str(pathlib.Path(path).parent) for path in found} == {str(package)}
