// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/QuadraticProgram.h>

#include <QZmath/Fitting/ActiveSet/DualActiveSet.h>
#include <QZmath/Foundation/IndexDetail.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

using REmath::Detail::index;

namespace
{

enum Status
{
    Solved = 0,
    IterationLimit = 1,
    Infeasible = 2,
    Unbounded = 3,
    NotConvex = 4,
    BadArgument = 5,
    WorkSpaceTooSmall = 6
};

// Places in the list of arguments, from 1.
enum Argument
{
    ArgN = 1,
    ArgM,
    ArgMe,
    ArgLdh,
    ArgLda,
    ArgH = 8,
    ArgC,
    ArgA,
    ArgB,
    ArgXl,
    ArgXu,
    ArgX,
    ArgTol = 19,
    ArgLwork = 28,
    ArgLiwork = 30
};

constexpr double largestTolerance = 0.01;
// Keeps the sizes of the work space within an `int`.
constexpr int largestSize = 20000;

// The greatest power of 2 that vanishes when it is added to 1.
double machinePrecision()
{
    double epsilon = 1.0;
    while (1.0 + epsilon > 1.0)
        epsilon *= 0.5;
    return epsilon;
}

bool isFinite(double const * matrix, std::size_t rows, std::size_t columns, std::size_t leading)
{
    for (std::size_t column = 0; column < columns; ++column) {
        double const * const begin = matrix + column * leading;
        if (!std::all_of(begin, begin + rows, [](double value) { return std::isfinite(value); }))
            return false;
    }
    return true;
}

bool hasNan(double const * vector, std::size_t size)
{
    return std::any_of(vector, vector + size, [](double value) { return std::isnan(value); });
}

// The greatest violation of a constraint or bound by `x`.
double greatestViolation(QuadraticProgramView const & program, double noBound, double const * x)
{
    double worst = 0;
    for (int i = 0; i < program.rows; ++i) {
        double excess = program.rightSide[i];
        for (int j = 0; j < program.variables; ++j)
            excess -= program.matrix[i + static_cast<std::ptrdiff_t>(j) * program.leadingMatrix] * x[j];
        worst = std::max(worst, i < program.equalities ? std::abs(excess) : excess);
    }
    for (int j = 0; j < program.variables; ++j) {
        if (std::abs(program.lower[j]) < noBound)
            worst = std::max(worst, program.lower[j] - x[j]);
        if (std::abs(program.upper[j]) < noBound)
            worst = std::max(worst, x[j] - program.upper[j]);
    }
    return worst;
}

double objective(QuadraticProgramView const & program, double const * x)
{
    double sum = 0;
    for (int j = 0; j < program.variables; ++j) {
        double const * const column = program.hessian + static_cast<std::ptrdiff_t>(j) * program.variables;
        double slope = 0;
        for (int i = 0; i < program.variables; ++i)
            slope += column[i] * x[i];
        sum += x[j] * (0.5 * slope + program.gradient[j]);
    }
    return sum;
}

// Fills `copy`, without gaps, with the mean of the matrix and its transpose.
void symmetrize(double const * matrix, std::size_t size, std::size_t leading, double * copy)
{
    for (std::size_t j = 0; j < size; ++j) {
        for (std::size_t i = 0; i < size; ++i)
            copy[j * size + i] = 0.5 * matrix[j * leading + i] + 0.5 * matrix[i * leading + j];
    }
}

// The first null pointer among the arguments that are needed, or 0. `m` is the number of rows.
template <class... Pointer>
int firstNull(Pointer... arguments)
{
    int place = 0, found = 0;
    auto const look = [&](bool isNull) {
        ++place;
        if (isNull && found == 0)
            found = place;
    };
    (look(arguments == nullptr), ...);
    return found;
}

} // namespace

void QLPoptimize(int * n, int * m, int * me, int * ldh, int * lda, int * maxIter, int * warm, double * h,
                 double * c, double * a, double * b, double * xl, double * xu, double * x, double * lambda,
                 double * zl, double * zu, double * f, double * tol, double * violation, int * activeSet,
                 int * nActive, int * iterations, int * status, int * badIndex, int *, double * work,
                 int * lwork, int * iwork, int * liwork, int *, int *)
{
    if (status == nullptr)
        return;
    auto const finish = [&](Status result, int index) {
        *status = result;
        if (badIndex != nullptr)
            *badIndex = index;
    };
    // What may be null without rows stands in as `status`, which is not.
    bool const hasRows = m != nullptr && *m > 0;
    auto const ifRows = [&](double * argument) { return hasRows ? static_cast<void *>(argument) : status; };
    if (int const null = firstNull(n, m, me, ldh, lda, maxIter, warm, h, c, ifRows(a), ifRows(b), xl, xu, x,
                                   ifRows(lambda), zl, zu, f, tol, violation, activeSet, nActive, iterations,
                                   status, badIndex, status, work, lwork, iwork, liwork))
        return finish(BadArgument, null);
    if (*n < 1 || *n > largestSize)
        return finish(BadArgument, ArgN);
    if (*m < 0 || *m > largestSize * largestSize)
        return finish(BadArgument, ArgM);

    auto const size = index(*n), rows = index(*m);
    std::size_t const numbers = size * size + CDualActiveSet::numbersNeeded(size, rows);
    std::size_t const integers = CDualActiveSet::integersNeeded(size, rows);
    if (numbers > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        return finish(BadArgument, ArgM);
    if (*lwork == -1 || *liwork == -1) {
        work[0] = static_cast<double>(numbers);
        iwork[0] = static_cast<int>(integers);
        return finish(Solved, 0);
    }
    if (*me < 0 || *me > *m)
        return finish(BadArgument, ArgMe);
    if (*ldh < *n)
        return finish(BadArgument, ArgLdh);
    if (*lda < std::max(1, *m))
        return finish(BadArgument, ArgLda);
    if (!isFinite(h, size, size, index(*ldh)))
        return finish(BadArgument, ArgH);
    if (!isFinite(c, size, 1, size))
        return finish(BadArgument, ArgC);
    if (!isFinite(a, rows, size, index(*lda)))
        return finish(BadArgument, ArgA);
    if (!isFinite(b, rows, 1, rows))
        return finish(BadArgument, ArgB);
    if (hasNan(xl, size))
        return finish(BadArgument, ArgXl);
    if (hasNan(xu, size))
        return finish(BadArgument, ArgXu);
    if (!isFinite(x, size, 1, size))
        return finish(BadArgument, ArgX);
    if (std::isnan(*tol))
        return finish(BadArgument, ArgTol);
    if (*lwork < 0 || index(*lwork) < numbers)
        return finish(WorkSpaceTooSmall, ArgLwork);
    if (*liwork < 0 || index(*liwork) < integers)
        return finish(WorkSpaceTooSmall, ArgLiwork);

    double const epsilon = machinePrecision();
    double const tolerance = *tol > 0 ? std::min(std::max(*tol, 10 * epsilon), largestTolerance)
                                      : CDualActiveSet::roundingUnits * epsilon;
    int const limit =
        *maxIter > 0
            ? *maxIter
            : static_cast<int>(std::min<std::size_t>(40 * (size + rows), std::numeric_limits<int>::max()));
    symmetrize(h, size, index(*ldh), work);
    QuadraticProgramView program = {*n, *m, *me, work, c, a, *lda, b, xl, xu};
    CDualActiveSet solver(program, tolerance, epsilon, work + size * size, iwork);
    CDualActiveSet::Result result = solver.solve(x, *warm == 1 ? activeSet : nullptr, limit);
    if (result == CDualActiveSet::Result::NotConvex)
        return finish(NotConvex, 0);
    *iterations = solver.iterations();
    if (result == CDualActiveSet::Result::Unbounded) {
        // Far out on the ray, rounding hides small contradictions: look for the feasible point that is next
        // to the start.
        std::fill_n(work, size * size, 0.0);
        std::fill_n(zl, size, 0.0);
        program.gradient = zl;
        solver = CDualActiveSet(program, tolerance, epsilon, work + size * size, iwork);
        CDualActiveSet::Result const nearest = solver.solve(x, nullptr, limit);
        *iterations += solver.iterations();
        if (nearest != CDualActiveSet::Result::Solved)
            result = nearest;
        symmetrize(h, size, index(*ldh), work);
        program.gradient = c;
    }
    std::copy_n(solver.x(), size, x);
    *nActive = solver.describe(lambda, zl, zu, activeSet);
    *f = objective(program, x);
    *violation = greatestViolation(program, CDualActiveSet::noBound, x);
    switch (result) {
    case CDualActiveSet::Result::Solved: {
        bool const hasOverflown = !std::isfinite(*f) || !std::isfinite(*violation) ||
                                  !isFinite(x, size, 1, size) || !isFinite(lambda, rows, 1, rows) ||
                                  !isFinite(zl, size, 1, size) || !isFinite(zu, size, 1, size);
        return finish(hasOverflown ? IterationLimit : Solved, 0);
    }
    case CDualActiveSet::Result::Infeasible:
        return finish(Infeasible, solver.conflict() + 1);
    case CDualActiveSet::Result::Unbounded:
        return finish(Unbounded, 0);
    default:
        return finish(IterationLimit, 0);
    }
}
