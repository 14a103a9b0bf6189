# SPDX-License-Identifier: Apache-2.0
"""Fairs a noisy mesh: each vertex is drawn to the mean of its neighbours, and held where it is by a spring."""
import numpy as np

import qzmath


def faired(mesh: qzmath.Mesh, stiffness: float) -> qzmath.Mesh:
    count = len(mesh.vertices)
    ends = mesh.triangles[:, [0, 1, 1, 2, 2, 0]].reshape(-1, 2)
    edges = np.unique(np.sort(ends, axis=1), axis=0)
    both = np.concatenate([edges, edges[:, ::-1]])
    both = both[np.argsort(both[:, 0], kind="stable")]
    valence = np.bincount(both[:, 0], minlength=count)
    # Row k: the valence and the spring on the diagonal, -1 for each neighbour.
    rows = np.concatenate([np.arange(count), both[:, 0]])
    columns = np.concatenate([np.arange(count), both[:, 1]])
    values = np.concatenate([valence + stiffness, np.full(len(both), -1.0)])
    order = np.argsort(rows, kind="stable")
    system = qzmath.LinearSystem(count, symmetric=True, positive_definite=True)
    system.add_equations(np.concatenate([[0], np.cumsum(1 + valence)]), columns[order], values[order])
    vertices = system.solve(right=stiffness * mesh.vertices)
    return qzmath.Mesh(vertices, mesh.triangles)


def roughness(mesh: qzmath.Mesh) -> float:
    return float(np.std(np.linalg.norm(mesh.vertices, axis=1)))


sphere = qzmath.reconstruct(qzmath.sample("sphere", 20000), depth=5)
noise = np.random.default_rng(1).normal(scale=0.01, size=sphere.vertices.shape)
rough = qzmath.Mesh(sphere.vertices + noise, sphere.triangles)
fair = faired(rough, stiffness=1.0)
print(f"deviation from a sphere: {roughness(rough):.4f} before, {roughness(fair):.4f} after")
assert roughness(fair) < 0.5 * roughness(rough)
