// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Foundation/Matrix.h>

#include <vector>

namespace PolylineDetail
{

/// Eliminates linear constraints, one unknown each, with the greatest coefficient of each row as pivot (first
/// of equals). Rows that the ones before them leave without a coefficient above `zeroTolerance` are skipped.
///
/// `constraints` has one row per constraint: the coefficients of the changes of all unknowns, and in the last
/// column the value that these changes must bring to 0. It is used up. The result Z has as many rows as
/// `constraints` columns, and one column per unknown left and a last one: with any y, Z (y, 1) is a change of
/// all unknowns, followed by 1, that meets all constraints.
///
/// Costs rows times columns per coefficient that is not 0: constraints tie neighbours only, so that chains
/// take about the square of their length.
REmath::Matrix<double> eliminateConstraints(REmath::Matrix<double> & constraints);

/// Normal equations N y = r for the least H y - g, where H and -g are the parts of the quadratic form
/// Z^T [M, M p; (M p)^T, 0] Z that are quadratic and linear in y. Of M, the 4 by 4 blocks on the diagonal
/// stand side by side in `blocks`; the unknowns behind them have no block.
void formNormalEquations(REmath::Matrix<double> const & blocks, std::vector<double> const & p,
                         REmath::Matrix<double> const & z, REmath::Matrix<double> & normal,
                         REmath::Matrix<double> & rightSide);

} // namespace PolylineDetail
