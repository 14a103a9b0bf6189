// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <apps/sampling/SampleShapes.h>

#include <cstddef>
#include <string>
#include <vector>

struct BenchmarkCloud
{
    qz_sampling::Cloud cloud;
    bool isClosed = true;
};

/// Clouds that no scanner makes, which a stage with too much work in one place shows itself by:
/// - one-cell: all samples within a millionth of a cube, but for its corners;
/// - diagonal: samples along a diagonal of a cube;
/// - noise: evenly spread in a cube, with normals in all directions;
/// - duplicates: a thousand places on a sphere, over and over.
std::vector<std::string> const & hostileNames();

/// A sampled shape, one of the hostile ones, or a file that exists. Throws what reading throws, and
/// `std::runtime_error` for a name that is none of them.
BenchmarkCloud benchmarkCloud(std::string const & name, std::size_t points);
