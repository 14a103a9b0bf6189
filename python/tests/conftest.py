# SPDX-License-Identifier: Apache-2.0
import numpy as np
import pytest

import qzmath


@pytest.fixture(scope="session")
def torus():
    return qzmath.sample("torus", 8000)


@pytest.fixture
def rng():
    return np.random.default_rng(1)


def assert_same_mesh(one, other):
    """Bit by bit."""
    for name in ("vertices", "triangles", "normals", "colors", "density"):
        left, right = getattr(one, name), getattr(other, name)
        assert (left is None) == (right is None), name
        if left is not None:
            assert left.dtype == right.dtype and np.array_equal(left, right), name
