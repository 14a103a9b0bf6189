// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/SparseLu.h>

#include <QZmath/Backend/Blas.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <random>
#include <umfpack.h>
#include <utility>
#include <vector>

namespace QzBackend
{
namespace
{

using Long = SuiteSparse_long;

// A matrix whose solutions grow by more than this is singular but for rounding errors.
constexpr double largestGrowth = 0.005 / std::numeric_limits<double>::epsilon();

} // namespace

struct CSparseLu::Body
{
    ~Body()
    {
        if (numeric)
            umfpack_dl_free_numeric(&numeric);
    }

    void takeRows(SparsePattern const & pattern, double const * givenValues);
    void expandUpper(SparsePattern const & pattern, double const * givenValues);
    bool isSingularToWorkingPrecision();

    std::vector<Long> begin, rows; // compressed columns of the transposed matrix
    std::vector<double> values;
    void * numeric = nullptr;
    double control[UMFPACK_CONTROL];
};

void CSparseLu::Body::takeRows(SparsePattern const & pattern, double const * givenValues)
{
    std::size_t const elements = std::size_t(pattern.elements());
    begin.resize(std::size_t(pattern.size) + 1);
    rows.resize(elements);
    for (std::size_t row = 0; row < begin.size(); ++row)
        begin[row] = pattern.rowIndex[row] - pattern.indexBase;
    for (std::size_t position = 0; position < elements; ++position)
        rows[position] = pattern.columns[position] - pattern.indexBase;
    values.assign(givenValues, givenValues + elements);
}

void CSparseLu::Body::expandUpper(SparsePattern const & pattern, double const * givenValues)
{
    auto const visit = [&](auto && visitElement) {
        for (int row = 0; row < pattern.size; ++row)
            pattern.visitUpper(row, [&](int upper, int other, int position) {
                visitElement(upper, other, position);
                if (upper != other)
                    visitElement(other, upper, position);
            });
    };
    begin.assign(std::size_t(pattern.size) + 1, 0);
    visit([&](int row, int, int) { ++begin[std::size_t(row) + 1]; });
    std::partial_sum(begin.begin(), begin.end(), begin.begin());
    rows.resize(std::size_t(begin.back()));
    values.resize(rows.size());
    std::vector<Long> next(begin.begin(), begin.end() - 1);
    // Row by row of the upper triangle, the columns of every full row come in ascending order.
    visit([&](int row, int column, int position) {
        std::size_t const slot = std::size_t(next[std::size_t(row)]++);
        rows[slot] = column;
        values[slot] = givenValues[position];
    });
}

/// A pivot that should be 0 but is a rounding error shows in any right part: the terms of its product with
/// the solution cancel from far above the right part. The measure does not change when rows or columns are
/// scaled.
bool CSparseLu::Body::isSingularToWorkingPrecision()
{
    std::size_t const size = begin.size() - 1;
    std::vector<double> right(size), solution(size), rowSums(size);
    std::minstd_rand random;
    for (std::size_t row = 0; row < size; ++row) {
        for (Long position = begin[row]; position < begin[row + 1]; ++position)
            rowSums[row] += std::fabs(values[std::size_t(position)]);
        right[row] = rowSums[row] * (random() % 2 ? 1.0 : -1.0);
    }
    double const refinements = std::exchange(control[UMFPACK_IRSTEP], 0.0);
    Long const status = umfpack_dl_solve(UMFPACK_At, begin.data(), rows.data(), values.data(),
                                         solution.data(), right.data(), numeric, control, nullptr);
    control[UMFPACK_IRSTEP] = refinements;
    if (status != UMFPACK_OK)
        return true;
    for (std::size_t row = 0; row < size; ++row) {
        double sum = 0.0;
        for (Long position = begin[row]; position < begin[row + 1]; ++position)
            sum +=
                std::fabs(values[std::size_t(position)] * solution[std::size_t(rows[std::size_t(position)])]);
        if (!(sum <= largestGrowth * rowSums[row]))
            return true;
    }
    return false;
}

CSparseLu::CSparseLu() = default;
CSparseLu::~CSparseLu() = default;

bool CSparseLu::factor(SparsePattern const & pattern, bool upperOnly, double const * values,
                       CProgressCounter * progress)
{
    m_body.reset();
    if (pattern.size <= 0 ||
        !std::all_of(values, values + pattern.elements(), [](double value) { return std::isfinite(value); }))
        return false;
    auto body = std::make_unique<Body>();
    umfpack_dl_defaults(body->control);
    body->control[UMFPACK_PRL] = 0;
    if (upperOnly)
        body->expandUpper(pattern, values);
    else
        body->takeRows(pattern, values);
    if (progress)
        progress->SetPosFloat(0.05);

    struct Symbolic
    {
        ~Symbolic()
        {
            if (handle)
                umfpack_dl_free_symbolic(&handle);
        }
        void * handle = nullptr;
    } symbolic;
    double info[UMFPACK_INFO];
    CBlasSingleThread const singleThread;
    if (umfpack_dl_symbolic(pattern.size, pattern.size, body->begin.data(), body->rows.data(),
                            body->values.data(), &symbolic.handle, body->control, info) != UMFPACK_OK)
        return false;
    if (progress)
        progress->SetPosFloat(0.2);
    if (umfpack_dl_numeric(body->begin.data(), body->rows.data(), body->values.data(), symbolic.handle,
                           &body->numeric, body->control, info) != UMFPACK_OK)
        return false;
    if (body->isSingularToWorkingPrecision())
        return false;
    if (progress)
        progress->SetPosFloat(1.0);
    m_body = std::move(body);
    return true;
}

bool CSparseLu::solve(double const * rightParts, int count, double * solutions)
{
    if (!m_body)
        return false;
    std::size_t const size = m_body->begin.size() - 1;
    CBlasSingleThread const singleThread;
    for (int part = 0; part < count; ++part) {
        std::size_t const offset = size * std::size_t(part);
        // What is stored by rows reads as the transposed matrix by columns.
        if (umfpack_dl_solve(UMFPACK_At, m_body->begin.data(), m_body->rows.data(), m_body->values.data(),
                             solutions + offset, rightParts + offset, m_body->numeric, m_body->control,
                             nullptr) != UMFPACK_OK)
            return false;
        if (!std::all_of(solutions + offset, solutions + offset + size,
                         [](double value) { return std::isfinite(value); }))
            return false;
    }
    return true;
}

} // namespace QzBackend
