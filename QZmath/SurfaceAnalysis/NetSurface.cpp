// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/NetSurface.h>

#include <QZmath/Foundation/VectorProductsDetail.h>

#include <algorithm>

using REmath::Matrix;
using REmath::Point3D;
using REmath::Point3D_d;
using REmath::Detail::cross;
using REmath::Detail::dot;
using REmath::Detail::widen;

namespace
{

// The four edges at a node. At a border the missing one is the opposite edge reversed.
struct EdgesAtNode
{
    EdgesAtNode(Matrix<Point3D> const & net, int column, int row)
    {
        Point3D_d const node = widen(net.elem(row, column));
        bool const isFirstColumn = column == 0, isLastColumn = column + 1 >= net.cols();
        bool const isFirstRow = row == 0, isLastRow = row + 1 >= net.rows();
        if (!isLastColumn)
            nextColumn = widen(net.elem(row, column + 1)) - node;
        if (!isFirstColumn)
            previousColumn = widen(net.elem(row, column - 1)) - node;
        if (!isLastRow)
            nextRow = widen(net.elem(row + 1, column)) - node;
        if (!isFirstRow)
            previousRow = widen(net.elem(row - 1, column)) - node;
        if (isLastColumn)
            nextColumn = -previousColumn;
        if (isFirstColumn)
            previousColumn = -nextColumn;
        if (isLastRow)
            nextRow = -previousRow;
        if (isFirstRow)
            previousRow = -nextRow;
    }

    Point3D_d normal() const
    {
        double components[3];
        cross(nextColumn, nextRow).toArray(components);
        NormalizeVector(components);
        return {components};
    }

    Point3D_d nextColumn, previousColumn, nextRow, previousRow;
};

// Index of the cell and position in it of a net coordinate, within 0 to `count - 1`.
struct CellCoordinate
{
    CellCoordinate(float coordinate, int count)
    {
        // The comparison is false for NaN.
        double const position = coordinate > 0 ? std::min<double>(coordinate, count - 1) : 0;
        index = static_cast<int>(position);
        fraction = position - index;
        if (fraction < 1e-5)
            fraction = 0;
    }

    int index;
    double fraction;
};

} // namespace

void GetNearestNetKnot(float const * p, Matrix<Point3D> const & net, int & column, int & row)
{
    double const x = p[0], y = p[1], z = p[2];
    double nearest = 1e30;
    int nearestColumn = 0, nearestRow = 0;
    // Column by column as the nodes stand in memory, with ties decided as if row by row.
    int const cols = net.rows() > 0 ? net.cols() : 0; // a net without rows has no memory
    for (int col = 0; col < cols; ++col) {
        Point3D const * const nodes = net[col];
        for (int r = 0; r < net.rows(); ++r) {
            double const dx = x - nodes[r].x(), dy = y - nodes[r].y(), dz = z - nodes[r].z();
            double const squaredDistance = dx * dx + dy * dy + dz * dz;
            if (!(squaredDistance <= nearest))
                continue;
            if (squaredDistance < nearest || r < nearestRow) {
                nearest = squaredDistance;
                nearestColumn = col;
                nearestRow = r;
            }
        }
    }
    column = nearestColumn;
    row = nearestRow;
}

void GetNetNormal(Matrix<Point3D> const & net, int column, int row, Point3D & normal, bool sign)
{
    Point3D_d const along = EdgesAtNode(net, column, row).normal();
    normal.fromArray((sign ? along : -along).asArray());
}

void ProjectPointToNet(float const * p, Matrix<Point3D> const & net, double & u, double & v)
{
    u = v = 0;
    if (net.rows() < 1 || net.cols() < 1)
        return;
    int column = 0, row = 0;
    GetNearestNetKnot(p, net, column, row);
    u = column;
    v = row;
    EdgesAtNode const edges(net, column, row);
    Point3D_d const normal = edges.normal();
    Point3D_d const offset = Point3D_d(p) - widen(net.elem(row, column));

    struct Quadrant
    {
        Point3D_d const & alongColumns;
        Point3D_d const & alongRows;
        int columnStep, rowStep;
    };
    Quadrant const quadrants[] = {{edges.nextColumn, edges.nextRow, 1, 1},
                                  {edges.previousColumn, edges.nextRow, -1, 1},
                                  {edges.previousColumn, edges.previousRow, -1, -1},
                                  {edges.nextColumn, edges.previousRow, 1, -1}};
    for (Quadrant const & quadrant : quadrants) {
        Point3D_d const acrossColumns = cross(normal, quadrant.alongColumns);
        Point3D_d const acrossRows = cross(normal, quadrant.alongRows);
        double const columnHeight = dot(quadrant.alongColumns, acrossRows);
        double const rowHeight = dot(quadrant.alongRows, acrossColumns);
        double const columnPart = dot(offset, acrossRows);
        double const rowPart = dot(offset, acrossColumns);
        if (!(rowPart * rowHeight >= 0 && columnPart * columnHeight >= 0))
            continue;
        if (columnHeight == 0 || rowHeight == 0)
            continue;
        u = column + quadrant.columnStep * (columnPart / columnHeight);
        v = row + quadrant.rowStep * (rowPart / rowHeight);
        return;
    }
}

void getPointOnNet(float u, float v, Matrix<Point3D> const & net, float * result)
{
    if (net.rows() < 1 || net.cols() < 1) {
        std::fill_n(result, 3, REmath::st_NoValueMark);
        return;
    }
    CellCoordinate const column(u, net.cols());
    CellCoordinate const row(v, net.rows());
    auto const onRow = [&](int index) {
        Point3D_d const start = widen(net.elem(index, column.index));
        if (column.fraction == 0)
            return start;
        return start * (1 - column.fraction) + widen(net.elem(index, column.index + 1)) * column.fraction;
    };
    Point3D_d point = onRow(row.index);
    if (row.fraction != 0)
        point = point * (1 - row.fraction) + onRow(row.index + 1) * row.fraction;
    point.toArray(result);
}
