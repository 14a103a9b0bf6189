// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Matrix.h>
#include <QZmath/Foundation/Point3D.h>

/// A surface as a net: a matrix of nodes, `net.elem(row, column)`, between which it is bilinear. Its
/// coordinates are fractional indices, u along the columns, 0 to `cols() - 1`, and v along the rows.
///
/// All functions throw nothing, allocate nothing and can be called from any thread. They widen the nodes and
/// compute in `double`.

/// The node nearest to `p`; of several the one in the lowest row, there in the lowest column. O(nodes). Nodes
/// further away than 1e15 are not found, nor is any on an empty net or for a `p` that is not finite: `column`
/// and `row` are 0 then.
QZMATH_API void GetNearestNetKnot(float const * p, REmath::Matrix<REmath::Point3D> const & net, int & column,
                                  int & row);

/// Unit normal at a node, which must exist: the edge to the next column x the edge to the next row, or the
/// opposite with `sign` false. In the last column and the last row the edge from the previous node takes the
/// place of the missing one. The zero vector where these edges are parallel, or where the net has a single
/// row or column.
QZMATH_API void GetNetNormal(REmath::Matrix<REmath::Point3D> const & net, int column, int row,
                             REmath::Point3D & normal, bool sign);

/// Net coordinates of the projection of `p` along the normal at its nearest node. O(nodes), which are all
/// searched for that node.
///
/// Around the node the net is taken as four parallelograms, one a quadrant. So the result is exact where
/// cells are parallelograms in one plane, and elsewhere within a fraction of a cell that shrinks with the
/// cells. Border cells go on beyond the border: the result may be below 0 or above the last index. Where no
/// quadrant contains the projection (on folded or collapsed cells) the result is the node itself.
QZMATH_API void ProjectPointToNet(float const * p, REmath::Matrix<REmath::Point3D> const & net, double & u,
                                  double & v);

/// The point of the net at `u`, `v`, bilinear within the cell. A fraction below 1e-5 of a cell is dropped.
/// Coordinates beyond the border, and NaN, are taken back into the range of the net. O(1). An empty net gives
/// the mark `REmath::st_NoValueMark` in all three coordinates.
QZMATH_API void getPointOnNet(float u, float v, REmath::Matrix<REmath::Point3D> const & net, float * result);
