#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Lays out the sources of the site: the Markdown pages as they are in the tree, what they link, and a page of
the reference for each public header that Doxygen has described.

Usage: prepare.py ROOT XML TARGET
"""
import shutil
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path

FOLDERS = {
    "Reconstruction": "From a cloud to a finished mesh in one call",
    "VolTriang": "The core: octree, kernels, bases, products, polygoniser",
    "LinSys": "Sparse systems over free and fixed vertices",
    "Fitting": "Lines, circles, planes and other shapes through points",
    "SurfaceAnalysis": "Normals, curvature, distances, projectors",
    "Foundation": "Points, matrices, frames, small numerics",
    "Files": "Readers and writers of clouds and meshes",
    "Viewer": "Meshes as pages for a browser and as stills",
    "Distributed": "Reconstruction and linear systems over the ranks of a cluster",
    "BlockProcessor": "Work on the blocks of a model",
    "Persistence": "Documents, data out of memory, heap, colours",
    "QZsys": "Progress, threads, exceptions, log",
}
GUIDE = ["tutorial", "gallery", "parameters", "troubleshooting", "qzrecon", "python", "viewer"]
SUBJECTS = ["reconstruction", "distributed", "files", "linear-systems", "fitting", "surface-analysis", "foundation",
            "persistence", "block-processing", "kernels-and-bases"]
HOUSE = ["benchmarks", "reliability", "architecture", "licences"]


def headers(xml: Path) -> "dict[str, list[str]]":
    """Public headers by folder, as paths from the root of the tree."""
    found: "dict[str, list[str]]" = {}
    for entry in ElementTree.parse(xml / "index.xml").getroot():
        if entry.get("kind") != "file" or not entry.findtext("name", "").endswith(".h"):
            continue
        place = ElementTree.parse(xml / (entry.attrib["refid"] + ".xml")).find(".//location")
        assert place is not None
        path = place.attrib["file"]
        parts = path.split("/")
        if parts[-1] in ("QZmath.h", "QZsys.h", "Files.h", "Viewer.h", "Distributed.h", "Export.h", "Version.h"):
            continue
        found.setdefault("QZsys" if parts[0] == "QZsys" else parts[1], []).append(path)
    return {folder: sorted(paths) for folder, paths in found.items()}


def write_reference(xml: Path, target: Path) -> None:
    by_folder = headers(xml)
    unknown = set(by_folder) - set(FOLDERS)
    if unknown:
        sys.exit(f"{sys.argv[0]}: name the folder in FOLDERS: {', '.join(sorted(unknown))}")
    overview = ["# Reference", "", "Out of the public headers. `#include <QZmath/QZmath.h>` brings all but the files,",
                "which are in `<QZmath/Files/Files.h>`.", "", "```{toctree}", ":hidden:", ""]
    overview += [f"{folder}/index" for folder in FOLDERS if folder in by_folder] + ["python", "```", ""]
    for folder, title in FOLDERS.items():
        if folder not in by_folder:
            continue
        (target / folder).mkdir(parents=True)
        names = [Path(path).stem for path in by_folder[folder]]
        overview += [f"**[{folder}]({folder}/index.md)**: {title}.", ""]
        overview += [" · ".join(f"[{name}]({folder}/{name}.rst)" for name in names), ""]
        lines = [f"# {folder}", "", f"{title}.", "", "```{toctree}", ":maxdepth: 1", "", *names, "```", ""]
        (target / folder / "index.md").write_text("\n".join(lines))
        for name, path in zip(names, by_folder[folder]):
            text = f"{name}\n{'=' * len(name)}\n\n``#include <{path}>``\n\n.. highlight:: cpp\n\n.. doxygenfile:: {path}\n"
            text += "   :project: qzmath\n   :sections: briefdescription detaileddescription innernamespace" \
                    " innerclass define enum func public-attrib public-func public-static-func public-type" \
                    " protected-func typedef var user-defined private-func\n"
            (target / folder / f"{name}.rst").write_text(text)
    overview += ["**[Python](python.rst)**: the package `qzmath`.", ""]
    (target / "index.md").write_text("\n".join(overview))
    (target / "python.rst").write_text("Python\n======\n\n.. automodule:: qzmath\n   :members:\n   :imported-members:\n")


def toctree(caption: str, names: "list[str]") -> str:
    return "\n```{toctree}\n:hidden:\n:caption: " + caption + "\n\n" + "\n".join(names) + "\n```\n"


def main() -> None:
    root, xml, target = (Path(argument) for argument in sys.argv[1:])
    if target.exists():
        shutil.rmtree(target)
    shutil.copytree(root / "docs", target / "docs", ignore=shutil.ignore_patterns("site", "CMakeLists.txt", "*.in"))
    shutil.copytree(root / "examples", target / "examples")
    for name in ("CHANGELOG.md", "CONTRIBUTING.md", "SECURITY.md", "LICENSE"):
        shutil.copy(root / name, target)
    page = (root / "README.md").read_text()
    existing = {path.stem for path in (root / "docs").glob("*.md")} - {"index"}
    left = existing - set(GUIDE + SUBJECTS + HOUSE)
    if left:
        sys.exit(f"{sys.argv[0]}: say where these pages stand in the list: {', '.join(sorted(left))}")
    for caption, names in (("Guide", GUIDE), ("Subjects", SUBJECTS), ("House", HOUSE)):
        listed = [f"docs/{name}" for name in names if name in existing]
        if caption == "Subjects":
            listed.insert(0, "docs/index")
        if caption == "House":
            listed += ["CONTRIBUTING", "SECURITY", "CHANGELOG"]
        page += toctree(caption, listed)
    page += toctree("Reference", ["reference/index"])
    (target / "index.md").write_text(page)
    write_reference(xml, target / "reference")


if __name__ == "__main__":
    main()
