# SPDX-License-Identifier: Apache-2.0
"""
Numerics and geometry for the processing of 3D scans: numpy in, numpy out.

>>> import qzmath
>>> cloud = qzmath.sample("torus", 10000)
>>> mesh = qzmath.reconstruct(cloud.points, cloud.normals, depth=6)
>>> mesh.report.is_closed
True
"""
from ._errors import Cancelled, ReconstructionError
from ._files import read_mesh, read_points, write_points
from ._fitting import (Circle, Consensus, Curve, FitError, Joint, Line, Plane, PolylineFit, QuadraticProgramError,
                       QuadraticProgramResult, fit_circle, fit_line, fit_plane, fit_polyline, optimize_min_max,
                       quadratic_program)
from ._linear import LinearSystem, Matrix, SolveError
from ._mesh import Mesh, PointCloud
from ._projection import project_points
from ._qzmath import version as __version__
from ._reconstruction import ReconstructionEstimate, estimate_reconstruction, reconstruct, sample
from ._report import Angles, Phase, Refinement, Report, Width
from ._surface import Curvatures, estimate_curvatures, estimate_normals

__all__ = [
    "Angles", "Cancelled", "Circle", "Consensus", "Curvatures", "Curve", "FitError", "Joint", "Line", "LinearSystem",
    "Matrix", "Mesh", "Phase", "Plane", "PointCloud", "PolylineFit", "QuadraticProgramError", "QuadraticProgramResult",
    "ReconstructionError", "ReconstructionEstimate", "Refinement", "Report", "SolveError", "Width", "__version__",
    "estimate_curvatures", "estimate_normals", "estimate_reconstruction", "fit_circle", "fit_line", "fit_plane",
    "fit_polyline", "optimize_min_max", "project_points", "quadratic_program", "read_mesh", "read_points",
    "reconstruct", "sample", "write_points",
]
for _name in __all__:
    if isinstance(globals()[_name], type):
        globals()[_name].__module__ = "qzmath"  # where users find it, and pickles too
del _name
