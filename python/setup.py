# SPDX-License-Identifier: Apache-2.0
"""
Builds the extension module by CMake and takes it into the package together with the libraries that it needs.

QZMATH_CMAKE_BUILD names the folder to build in; without it, build/wheel of the tree. What was built there before is used
again.
"""
import os
import pathlib
import re
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

root = pathlib.Path(__file__).resolve().parent.parent


def version():
    header = (root / "QZmath/Version.h").read_text()
    return ".".join(re.search(rf"^#define QZMATH_VERSION_{part} (\d+)$", header, re.MULTILINE)[1]
                    for part in ("MAJOR", "MINOR", "PATCH"))


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        folder = os.environ.get("QZMATH_CMAKE_BUILD", str(root / "build/wheel"))
        unwanted = [f"-DQZMATH_BUILD_{part}=OFF" for part in ("APPS", "TESTS", "EXAMPLES", "BENCHMARKS")]
        if not os.path.exists(os.path.join(folder, "CMakeCache.txt")):
            subprocess.run(["cmake", "-S", root, "-B", folder, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                            f"-DQZMATH_PYTHON={sys.executable}", *unwanted], check=True)
        subprocess.run(["cmake", "--build", folder, "--target", "qzmath_python"], check=True)
        target = pathlib.Path(self.get_ext_fullpath(ext.name)).resolve().parent.parent
        subprocess.run(["cmake", "--install", folder, "--prefix", target, "--component", "python", "--strip"],
                       check=True)
        for library in (target / "qzmath").glob("lib*.so.*.*.*"):
            # A wheel holds no symbolic links; the loader asks for the name with the major number only.
            library.replace(target / "qzmath" / re.sub(r"(\.so\.\d+).*", r"\1", library.name))


setup(version=version(), options={"build": {"build_base": str(root / "build/python-package")}}, ext_modules=[Extension("qzmath._qzmath", [])], cmdclass={"build_ext": CMakeBuild})
