// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/SparseCholesky.h>

#include <QZmath/Backend/Blas.h>
#include <QZmath/Backend/FillOrdering.h>
#include <QZmath/Backend/Lapack.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <cholmod.h>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <vector>

namespace QzBackend
{
namespace
{

using Long = SuiteSparse_long;

// Blocks of this width and depth keep a matrix kernel near its peak speed and below some 0.05 seconds.
constexpr int blockColumns = 128;
constexpr int blockInner = 512;
// Between two reports of progress, in multiplications and additions: some milliseconds.
constexpr double workBetweenReports = 5e7;
// What it takes to move an element between blocks, in the same unit.
constexpr double workPerMove = 20;
constexpr Long visitsBetweenReports = 5000000;
// A pivot below this share of its diagonal element consists of rounding errors.
constexpr double smallestPivotShare = 32 * std::numeric_limits<double>::epsilon();
// Shares of the analysis in its progress.
constexpr double orderingShare = 0.6;

/// CHOLMOD's state; silent, and handing failures back by return values.
class Session
{
public:
    Session()
    {
        cholmod_l_start(&m_common);
        m_common.print = 0;
        m_common.error_handler = nullptr;
        m_common.supernodal = CHOLMOD_SUPERNODAL;
    }
    ~Session() { cholmod_l_finish(&m_common); }
    Session(Session const &) = delete;
    Session & operator=(Session const &) = delete;
    cholmod_common * get() { return &m_common; }

private:
    cholmod_common m_common;
};

struct SparseDeleter
{
    cholmod_common * common;
    void operator()(cholmod_sparse * matrix) const { cholmod_l_free_sparse(&matrix, common); }
};
struct DenseDeleter
{
    cholmod_common * common;
    void operator()(cholmod_dense * matrix) const { cholmod_l_free_dense(&matrix, common); }
};
struct FactorDeleter
{
    cholmod_common * common;
    void operator()(cholmod_factor * factor) const { cholmod_l_free_factor(&factor, common); }
};
using SparsePtr = std::unique_ptr<cholmod_sparse, SparseDeleter>;
using DensePtr = std::unique_ptr<cholmod_dense, DenseDeleter>;
using FactorPtr = std::unique_ptr<cholmod_factor, FactorDeleter>;

template <class T>
std::size_t at(T index)
{
    return std::size_t(index);
}

/// Reports how much of a factorisation is done. Work that the total does not count, `aside`, makes reports
/// more frequent only.
class FactorProgress
{
public:
    FactorProgress(CProgressCounter * progress, double total) : m_progress(progress), m_total(total) {}
    void add(double work, double aside)
    {
        m_done += work;
        m_sinceReport += work + aside;
        if (m_progress && m_sinceReport >= workBetweenReports) {
            m_sinceReport = 0;
            m_progress->SetPosFloat(std::min(m_done / m_total, 1.0));
        }
    }

private:
    CProgressCounter * m_progress;
    double m_total;
    double m_done = 0;
    double m_sinceReport = 0;
};

} // namespace

struct CSparseCholesky::Body
{
    Session session;
    SparsePattern pattern;
    std::vector<int> order;    ///< order[k] is the row eliminated k-th
    std::vector<int> position; ///< its inverse
    FactorPtr factor{nullptr, FactorDeleter{nullptr}};
    std::vector<int> supernodeOf; ///< for each column of the factor
    double work = 0;              ///< multiplications and additions of a factorisation
    /// The elements of each row's column whose row is eliminated later than the column's own: they stand in
    /// other rows of the upper triangle.
    std::vector<std::int64_t> columnBegin;
    std::vector<int> columnPosition, columnRow;

    SparsePtr permutedUpper(CProgressCounter * progress, double begin, double end);
    bool analyzeStructure(CProgressCounter * progress);
    void transposeReversed(CProgressCounter * progress, double begin, double end);
    void scatter(Long firstColumn, Long lastColumn, double const * values, double shift, int const * rowOf,
                 double * block, Long leading, FactorProgress & done) const;
    bool factorBlock(Long rows, int columns, double * block, double const * diagonal, FactorProgress & done);
    bool factorNumerically(double const * values, double shift, CProgressCounter * progress);
};

/// The pattern's upper triangle in the present order of elimination.
SparsePtr CSparseCholesky::Body::permutedUpper(CProgressCounter * progress, double begin, double end)
{
    int const size = pattern.size;
    auto const report = [&](int row, double from, double to) {
        if (progress && row % 4096 == 0)
            progress->SetPosFloat(begin + (end - begin) * (from + (to - from) * row / size));
    };
    std::vector<Long> place(at(size) + 1, 0);
    Long total = 0;
    for (int row = 0; row < size; ++row) {
        report(row, 0.0, 0.5);
        pattern.visitUpper(row, [&](int upper, int other, int) {
            ++place[at(std::max(position[at(upper)], position[at(other)]))];
            ++total;
        });
    }
    SparsePtr matrix(
        cholmod_l_allocate_sparse(at(size), at(size), at(total), 0, 1, 1, CHOLMOD_PATTERN, session.get()),
        SparseDeleter{session.get()});
    if (!matrix)
        return matrix;
    Long * const columnStarts = static_cast<Long *>(matrix->p);
    Long * const rows = static_cast<Long *>(matrix->i);
    columnStarts[0] = 0;
    for (int column = 0; column < size; ++column) {
        columnStarts[column + 1] = columnStarts[column] + place[at(column)];
        place[at(column)] = columnStarts[column];
    }
    for (int row = 0; row < size; ++row) {
        report(row, 0.5, 1.0);
        pattern.visitUpper(row, [&](int upper, int other, int) {
            auto const [early, late] = std::minmax(position[at(upper)], position[at(other)]);
            rows[place[at(late)]++] = early;
        });
    }
    return matrix;
}

bool CSparseCholesky::Body::analyzeStructure(CProgressCounter * progress)
{
    std::size_t const size = at(pattern.size);
    auto const positionAt = [](double share) { return orderingShare + (1.0 - orderingShare) * share; };
    auto const report = [&](double share) {
        if (progress)
            progress->SetPosFloat(positionAt(share));
    };
    auto const setPositions = [&] {
        for (std::size_t k = 0; k < size; ++k)
            position[at(order[k])] = int(k);
    };
    cholmod_common * const common = session.get();
    position.resize(size);
    setPositions();

    // Row by row of the factor, the elements of a row are reached up the elimination tree from those of the
    // matrix (Liu 1990). That gives the tree and the number of elements of each column in one pass.
    std::vector<Long> parent(size, -1), postorder(size), count(size, 1);
    {
        SparsePtr const upper = permutedUpper(progress, positionAt(0.0), positionAt(0.25));
        if (!upper)
            return false;
        Long const * const columnStarts = static_cast<Long const *>(upper->p);
        Long const * const rows = static_cast<Long const *>(upper->i);
        std::vector<Long> reachedFrom(size, -1);
        Long visits = 0, nextReport = 0;
        for (Long row = 0; row < Long(size); ++row) {
            if (visits >= nextReport) {
                nextReport = visits + visitsBetweenReports;
                report(0.25 + 0.3 * double(row) / double(size));
            }
            reachedFrom[at(row)] = row;
            for (Long place = columnStarts[row]; place < columnStarts[row + 1]; ++place) {
                ++visits;
                for (Long column = rows[place]; reachedFrom[at(column)] != row; column = parent[at(column)]) {
                    if (parent[at(column)] < 0)
                        parent[at(column)] = row;
                    ++count[at(column)];
                    reachedFrom[at(column)] = row;
                    ++visits;
                }
            }
        }
    }
    // The tree in postorder, so that each supernode's columns come to stand side by side.
    if (cholmod_l_postorder(parent.data(), size, nullptr, postorder.data(), common) != Long(size))
        return false;
    factor = FactorPtr(cholmod_l_allocate_factor(size, common), FactorDeleter{common});
    if (!factor)
        return false;
    std::vector<int> postordered(size);
    std::vector<Long> newNumber(size), newParent(size);
    for (std::size_t k = 0; k < size; ++k) {
        postordered[k] = order[at(postorder[k])];
        newNumber[at(postorder[k])] = Long(k);
    }
    for (std::size_t k = 0; k < size; ++k) {
        newParent[at(newNumber[k])] = parent[k] < 0 ? -1 : newNumber[at(parent[k])];
        static_cast<Long *>(factor->ColCount)[newNumber[k]] = count[k];
    }
    order = std::move(postordered);
    setPositions();
    std::copy(order.begin(), order.end(), static_cast<Long *>(factor->Perm));
    factor->ordering = CHOLMOD_GIVEN;

    SparsePtr const upper = permutedUpper(progress, positionAt(0.55), positionAt(0.7));
    if (!upper)
        return false;
    report(0.7);
    return cholmod_l_super_symbolic(upper.get(), nullptr, newParent.data(), factor.get(), common) != 0;
}

void CSparseCholesky::Body::transposeReversed(CProgressCounter * progress, double begin, double end)
{
    columnBegin.assign(at(pattern.size) + 1, 0);
    auto const visitReversed = [&](double from, double to, auto && visit) {
        for (int row = 0; row < pattern.size; ++row) {
            if (progress && row % 4096 == 0)
                progress->SetPosFloat(begin + (end - begin) * (from + (to - from) * row / pattern.size));
            pattern.visitUpper(row, [&](int upper, int other, int place) {
                if (position[at(other)] < position[at(upper)])
                    visit(upper, other, place);
            });
        }
    };
    visitReversed(0.0, 0.4, [&](int, int other, int) { ++columnBegin[at(other) + 1]; });
    std::partial_sum(columnBegin.begin(), columnBegin.end(), columnBegin.begin());
    columnPosition.resize(at(columnBegin.back()));
    columnRow.resize(at(columnBegin.back()));
    std::vector<std::int64_t> next(columnBegin.begin(), columnBegin.end() - 1);
    visitReversed(0.4, 1.0, [&](int upper, int other, int place) {
        std::size_t const slot = at(next[at(other)]++);
        columnPosition[slot] = place;
        columnRow[slot] = upper;
    });
}

/// Fills the block of some columns of the factor with the matrix's elements; `rowOf` gives the
/// block's row for a row of the factor.
void CSparseCholesky::Body::scatter(Long firstColumn, Long lastColumn, double const * values, double shift,
                                    int const * rowOf, double * block, Long leading,
                                    FactorProgress & done) const
{
    for (Long column = firstColumn; column < lastColumn; ++column) {
        int const row = order[at(column)];
        double * const target = block + (column - firstColumn) * leading;
        std::fill(target, target + leading, 0.0);
        pattern.visitUpper(row, [&](int, int other, int place) {
            if (int const later = position[at(other)]; later >= column)
                target[rowOf[later]] = values[place];
        });
        for (std::int64_t slot = columnBegin[at(row)]; slot < columnBegin[at(row) + 1]; ++slot)
            target[rowOf[position[at(columnRow[at(slot)])]]] = values[columnPosition[at(slot)]];
        target[column - firstColumn] += shift;
        std::int64_t const visited =
            pattern.rowEnd(row) - pattern.rowBegin(row) + columnBegin[at(row) + 1] - columnBegin[at(row)];
        done.add(0, workPerMove * double(visited + leading));
    }
}

/// Dense Cholesky factorisation of the first columns of a block with at least as many rows. `diagonal` holds
/// the matrix's own diagonal elements.
bool CSparseCholesky::Body::factorBlock(Long rows, int columns, double * block, double const * diagonal,
                                        FactorProgress & done)
{
    int const leading = int(rows);
    for (int begin = 0; begin < columns; begin += blockColumns) {
        int const width = std::min(blockColumns, columns - begin);
        int const height = leading - begin;
        double * const target = block + begin + std::ptrdiff_t(begin) * leading;
        for (int inner = 0; inner < begin; inner += blockInner) {
            int const depth = std::min(blockInner, begin - inner);
            double const * const source = block + begin + std::ptrdiff_t(inner) * leading;
            gemmTransposed(height, width, depth, -1.0, source, leading, source, leading, target, leading);
            done.add(double(height) * width * depth, 0);
        }
        if (!choleskyLower(width, target, leading))
            return false;
        for (int k = 0; k < width; ++k) {
            double const pivot = target[k + std::ptrdiff_t(k) * leading];
            if (!(pivot * pivot > smallestPivotShare * diagonal[begin + k]) || !std::isfinite(pivot))
                return false;
        }
        solveLowerTransposedFromRight(height - width, width, target, leading, target + width, leading);
        done.add(double(height) * width * width * 0.5, 0);
    }
    return true;
}

bool CSparseCholesky::Body::factorNumerically(double const * values, double shift,
                                              CProgressCounter * progress)
{
    cholmod_factor & result = *factor;
    Long const supernodes = Long(result.nsuper);
    Long const * const columnsOf = static_cast<Long const *>(result.super);
    Long const * const rowsBegin = static_cast<Long const *>(result.pi);
    Long const * const blockBegin = static_cast<Long const *>(result.px);
    Long const * const rows = static_cast<Long const *>(result.s);
    double * const elements = static_cast<double *>(result.x);
    std::size_t const size = at(pattern.size);

    FactorProgress done(progress, work);
    std::vector<int> rowOf(size, 0);
    std::vector<double> update, diagonal;
    // Each finished supernode waits in the list of the one that its next rows belong to.
    std::vector<Long> waiting(at(supernodes), -1), nextWaiting(at(supernodes), -1),
        nextRow(at(supernodes), 0);
    for (Long supernode = 0; supernode < supernodes; ++supernode) {
        Long const firstColumn = columnsOf[supernode], lastColumn = columnsOf[supernode + 1];
        int const columns = int(lastColumn - firstColumn);
        Long const * const ownRows = rows + rowsBegin[supernode];
        Long const leading = rowsBegin[supernode + 1] - rowsBegin[supernode];
        double * const block = elements + blockBegin[supernode];
        for (Long k = 0; k < leading; ++k)
            rowOf[at(ownRows[k])] = int(k);
        scatter(firstColumn, lastColumn, values, shift, rowOf.data(), block, leading, done);
        diagonal.resize(at(columns));
        for (int k = 0; k < columns; ++k)
            diagonal[at(k)] = block[k + k * leading];

        for (Long source = waiting[at(supernode)]; source >= 0;) {
            Long const following = nextWaiting[at(source)];
            Long const sourceLeading = rowsBegin[source + 1] - rowsBegin[source];
            int const depth = int(columnsOf[source + 1] - columnsOf[source]);
            Long const begin = nextRow[at(source)];
            Long const * const sourceRows = rows + rowsBegin[source];
            Long end = begin;
            while (end < sourceLeading && sourceRows[end] < lastColumn)
                ++end;
            double const * const sourceBlock = elements + blockBegin[source];
            for (Long left = begin; left < end; left += blockColumns) {
                int const width = int(std::min<Long>(blockColumns, end - left));
                int const height = int(sourceLeading - left);
                update.assign(at(height) * at(width), 0.0);
                for (int inner = 0; inner < depth; inner += blockInner) {
                    int const part = std::min(blockInner, depth - inner);
                    double const * const operand = sourceBlock + left + inner * sourceLeading;
                    gemmTransposed(height, width, part, 1.0, operand, int(sourceLeading), operand,
                                   int(sourceLeading), update.data(), height);
                    done.add(double(height) * width * part, 0);
                }
                for (int column = 0; column < width; ++column) {
                    double * const target = block + rowOf[at(sourceRows[left + column])] * leading;
                    double const * const change = update.data() + std::ptrdiff_t(column) * height;
                    for (int row = column; row < height; ++row)
                        target[rowOf[at(sourceRows[left + row])]] -= change[row];
                }
                done.add(0, workPerMove * double(height) * width);
            }
            if (end < sourceLeading) {
                nextRow[at(source)] = end;
                int const receiver = supernodeOf[at(sourceRows[end])];
                nextWaiting[at(source)] = waiting[at(receiver)];
                waiting[at(receiver)] = source;
            }
            source = following;
        }

        if (!factorBlock(leading, columns, block, diagonal.data(), done))
            return false;
        if (leading > columns) {
            nextRow[at(supernode)] = columns;
            int const receiver = supernodeOf[at(ownRows[columns])];
            nextWaiting[at(supernode)] = waiting[at(receiver)];
            waiting[at(receiver)] = supernode;
        }
    }
    result.minor = size;
    return true;
}

CSparseCholesky::CSparseCholesky() = default;
CSparseCholesky::~CSparseCholesky() = default;

bool CSparseCholesky::analyze(SparsePattern const & pattern, CProgressCounter * progress)
{
    m_body.reset();
    auto body = std::make_unique<Body>();
    body->pattern = pattern;
    {
        CPrgCntSubPhase const ordering(progress, 0.0, orderingShare, 0, true);
        body->order = fillReducingOrder(pattern, progress);
    }
    if (!body->analyzeStructure(progress))
        return false;
    if (progress)
        progress->SetPosFloat(0.9);
    body->transposeReversed(progress, 0.9, 1.0);

    cholmod_factor const & factor = *body->factor;
    Long const * const columnsOf = static_cast<Long const *>(factor.super);
    Long const * const rowsBegin = static_cast<Long const *>(factor.pi);
    body->supernodeOf.resize(at(pattern.size));
    for (Long supernode = 0; supernode < Long(factor.nsuper); ++supernode) {
        double rows = double(rowsBegin[supernode + 1] - rowsBegin[supernode]);
        for (Long column = columnsOf[supernode]; column < columnsOf[supernode + 1]; ++column, --rows) {
            body->supernodeOf[at(column)] = int(supernode);
            body->work += rows * rows;
        }
    }
    m_body = std::move(body);
    if (progress)
        progress->SetPosFloat(1.0);
    return true;
}

bool CSparseCholesky::factor(double const * values, double diagonalShift, CProgressCounter * progress)
{
    if (!m_body)
        return false;
    cholmod_factor & factor = *m_body->factor;
    if (factor.xtype != CHOLMOD_REAL &&
        !cholmod_l_change_factor(CHOLMOD_REAL, 1, 1, 1, 1, &factor, m_body->session.get()))
        return false;
    factor.minor = 0;
    CBlasSingleThread const singleThread;
    return m_body->factorNumerically(values, diagonalShift, progress);
}

bool CSparseCholesky::solve(double const * rightParts, int count, double * solutions)
{
    if (!m_body || m_body->factor->xtype != CHOLMOD_REAL || m_body->factor->minor != m_body->factor->n)
        return false;
    if (count <= 0)
        return true;
    std::size_t const size = m_body->factor->n;
    cholmod_common * const common = m_body->session.get();
    cholmod_dense right{};
    right.nrow = right.d = size;
    right.ncol = at(count);
    right.nzmax = size * at(count);
    right.x = const_cast<double *>(rightParts); // read only
    right.xtype = CHOLMOD_REAL;
    CBlasSingleThread const singleThread;
    DensePtr const solution(cholmod_l_solve(CHOLMOD_A, m_body->factor.get(), &right, common),
                            DenseDeleter{common});
    if (!solution)
        return false;
    double const * const first = static_cast<double const *>(solution->x);
    double const * const last = first + size * at(count);
    if (!std::all_of(first, last, [](double value) { return std::isfinite(value); }))
        return false;
    std::copy(first, last, solutions);
    return true;
}

} // namespace QzBackend
