# SPDX-License-Identifier: Apache-2.0
import numpy as np

import qzmath

i = np.arange(20000)  # on the unit sphere: a spiral from pole to pole
z = 1 - (i + 0.5) / 10000
r, angle = np.sqrt(1 - z * z), 2.4 * i
points = np.stack([r * np.cos(angle), r * np.sin(angle), z], axis=1)

# The normals are the same on this sphere; without them, they are estimated.
mesh = qzmath.reconstruct(points, normals=points, depth=None)
print(f"{len(mesh.vertices)} vertices, {len(mesh.triangles)} triangles")
assert 2 * len(mesh.vertices) == len(mesh.triangles) + 4  # Euler's formula
