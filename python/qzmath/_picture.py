# SPDX-License-Identifier: Apache-2.0
"""Still pictures of meshes, for notebooks and pages. Needs numpy only."""
from __future__ import annotations

from typing import Any

import numpy as np
import numpy.typing as npt


def _rotation(azimuth: float, elevation: float) -> Any:
    """Turns the world so that the viewer, at these angles in degrees, looks along -z with y up."""
    a, e = np.radians([azimuth, elevation])
    around = np.array([[-np.sin(a), np.cos(a), 0], [-np.cos(a), -np.sin(a), 0], [0, 0, 1]])
    upright = np.array([[1, 0, 0], [0, 0, 1], [0, -1, 0]])
    tilt = np.array([[1, 0, 0], [0, np.cos(e), -np.sin(e)], [0, np.sin(e), np.cos(e)]])
    return tilt @ upright @ around


def render(
    positions: Any, triangles: Any, colors: Any = None, view: tuple[float, float] = (-60.0, 25.0), size: int = 480,
    supersampling: int = 2
) -> npt.NDArray[np.uint8]:
    """
    A picture of size x size pixels: (size, size, 3) bytes.

    The z axis points up. The side to which triangles are counter-clockwise is grey or in the colours of the vertices,
    the other one red. `view` is the azimuth and the elevation of the viewer in degrees. Each pixel is the mean of
    `supersampling` squared ones.
    """
    pixels = size * supersampling
    if len(triangles) == 0:
        return np.full((size, size, 3), 255, np.uint8)
    placed = positions @ _rotation(*view).T
    low, high = placed[triangles].min((0, 1)), placed[triangles].max((0, 1))
    scale = 0.92 * pixels / max(*(high - low)[:2], 1e-300)
    placed = (placed - (low + high) / 2) * scale + np.array([pixels / 2, pixels / 2, 0])
    corners = placed[triangles]
    across = np.cross(corners[:, 1] - corners[:, 0], corners[:, 2] - corners[:, 0])
    length = np.linalg.norm(across, axis=1)
    normals = across / np.maximum(length, 1e-300)[:, None]
    light = np.array([-0.35, 0.5, 0.79])
    shade = 0.25 + 0.75 * np.abs(normals @ light)
    base = np.full((len(triangles), 3), [205.0, 208.0, 214.0])
    if colors is not None:
        base = np.asarray(colors, float)[triangles].mean(1)
    base[normals[:, 2] < 0] = [200, 80, 60]
    tint = base * shade[:, None]

    depth = np.full(pixels * pixels, -np.inf)
    image = np.full((pixels * pixels, 3), 255.0)
    edges = corners[:, [1, 2, 0], :2] - corners[:, :, :2]
    steps = np.ceil(np.linalg.norm(edges, axis=2).max(1)).astype(int) + 1
    steps = 2 ** np.ceil(np.log2(np.maximum(steps, 1))).astype(int)
    for count in np.unique(steps):
        # Points of a triangular grid in each triangle, less than a pixel apart.
        i, j = np.meshgrid(np.arange(count + 1), np.arange(count + 1))
        inside = i + j <= count
        u, v = i[inside] / count, j[inside] / count
        chosen = np.nonzero(steps == count)[0]
        piece = max(1, 4_000_000 // len(u))
        for first in range(0, len(chosen), piece):
            some = chosen[first:first + piece]
            a, b, c = (corners[some, k][:, None, :] for k in range(3))
            points = a + (b - a) * u[None, :, None] + (c - a) * v[None, :, None]
            x = points[..., 0].astype(int).ravel()
            y = (pixels - 1 - points[..., 1].astype(int)).ravel()
            owner = np.repeat(some, len(u))
            seen = (x >= 0) & (x < pixels) & (y >= 0) & (y < pixels)
            place, height, owner = (y * pixels + x)[seen], points[..., 2].ravel()[seen], owner[seen]
            # Of points in one pixel the last one written stays: the nearest.
            front = np.nonzero(height > depth[place])[0]
            front = front[np.argsort(height[front], kind="stable")]
            depth[place[front]] = height[front]
            image[place[front]] = tint[owner[front]]
    shape = (size, supersampling, size, supersampling, 3)
    return np.asarray(image.reshape(shape).mean((1, 3)).astype(np.uint8))
