// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/SparseLu.h>

#include <QZmath/Backend/Blas.h>
#include <QZmath/Backend/EliminationTree.h>
#include <QZmath/Backend/FillOrdering.h>
#include <QZmath/Backend/Lapack.h>
#include <QZmath/Backend/Place.h>
#include <QZmath/Backend/RawArray.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <limits>
#include <new>
#include <numeric>
#include <random>
#include <slu_ddefs.h>
#include <utility>
#include <vector>

namespace QzBackend
{
namespace
{

// A matrix whose solutions grow by more than this is singular but for rounding errors.
constexpr double largestGrowth = 0.005 / std::numeric_limits<double>::epsilon();
// A pivot on the diagonal is kept from this share of the largest candidate on.
constexpr double diagonalThreshold = 0.1;
constexpr double symmetricThreshold = 0.001;
// Structures of which this share of the elements has a mirror image count as nearly symmetric.
constexpr double symmetricShare = 0.5;
// For the order on A^T A, so many pairs per element are looked at; the longest rows are left out.
constexpr double pairsPerElement = 60;
constexpr int mostRefinements = 2;
// Nanoseconds for each multiplication of a Cholesky factorisation of the graph that is ordered; that of A^T A
// bounds the factors from far above.
constexpr double dissectionSaves = 0.75;
constexpr double dissectionSavesUnsymmetric = 0.05;
// Shares of a factorisation in its progress.
constexpr double orderingShare = 0.25;

// Plain memory that can grow in place, for the kernels.
template <class T>
class GrowingArray
{
public:
    GrowingArray() = default;
    ~GrowingArray() { std::free(m_data); }
    GrowingArray(GrowingArray const &) = delete;
    GrowingArray & operator=(GrowingArray const &) = delete;

    T * data() const { return m_data; }
    int capacity() const { return m_capacity; }

    // Makes room for `needed` elements, and some more.
    void reserve(std::int64_t needed)
    {
        constexpr std::int64_t most = std::numeric_limits<int>::max();
        if (needed > most)
            throw std::bad_alloc();
        if (needed > m_capacity)
            resize(int(std::min<std::int64_t>(most, needed + needed / 4)));
    }
    void resize(int capacity)
    {
        void * const memory = std::realloc(m_data, sizeof(T) * at(std::max(capacity, 1)));
        if (!memory)
            throw std::bad_alloc();
        m_data = static_cast<T *>(memory);
        m_capacity = capacity;
    }

private:
    T * m_data = nullptr;
    int m_capacity = 0;
};

// The power of two next to 1 / size.
double inverseScale(double size)
{
    return size > 0.0 ? std::ldexp(1.0, std::clamp(-std::ilogb(size), -1000, 1000)) : 1.0;
}

} // namespace

struct CSparseLu::Body
{
    int size = 0;
    // The scaled matrix by columns; rows ascend.
    std::vector<std::int64_t> begin;
    std::vector<int> rows;
    std::vector<double> values;
    std::vector<double> rowScale, columnScale;
    bool isSymmetric = false;
    bool isNearlySymmetric = false;

    std::vector<int> columnAt; // column eliminated k-th
    std::vector<int> rowPlace; // step in which each row is the pivot
    // The factors. Supernodes of L, with the triangle of U that stands between their columns; the rest of U
    // by columns.
    GrowingArray<double> blocks, upper;
    GrowingArray<int> lowerRows, upperRows;
    std::vector<int> supernodeBegin;                    // first column of each, and the end
    std::vector<int> rowsBegin, blockBegin, upperBegin; // by column

    void takeColumns(SparsePattern const & pattern, bool upperOnly, double const * givenValues);
    void equilibrate();
    bool hasMirrorImages() const;
    template <class Call>
    void visitPairs(Call const & call) const;
    std::vector<int> columnOrder(CProgressCounter * progress) const;
    void postorderColumns(std::vector<int> & columnTree);
    void solveScaled(double * right, std::vector<double> & work) const;
    void solveScaledTransposed(double * right, std::vector<double> & work) const;
    double condition(CProgressCounter * progress) const;
    double residual(double const * solution, double const * right, double * result) const;
    bool isSingularToWorkingPrecision() const;
};

void CSparseLu::Body::takeColumns(SparsePattern const & pattern, bool upperOnly, double const * givenValues)
{
    size = pattern.size;
    isSymmetric = upperOnly;
    auto const visit = [&](auto const & visitElement) {
        for (int row = 0; row < size; ++row)
            for (int place = pattern.rowBegin(row); place < pattern.rowEnd(row); ++place) {
                int const column = pattern.column(place);
                visitElement(row, column, givenValues[place]);
                if (upperOnly && column != row)
                    visitElement(column, row, givenValues[place]);
            }
    };
    begin.assign(at(size) + 1, 0);
    visit([&](int, int column, double) { ++begin[at(column) + 1]; });
    std::partial_sum(begin.begin(), begin.end(), begin.begin());
    rows.resize(at(begin.back()));
    values.resize(rows.size());
    std::vector<std::int64_t> next(begin.begin(), begin.end() - 1);
    visit([&](int row, int column, double value) {
        std::size_t const slot = at(next[at(column)]++);
        rows[slot] = row;
        values[slot] = value;
    });
}

void CSparseLu::Body::equilibrate()
{
    std::vector<double> largest(at(size), 0.0);
    for (std::size_t place = 0; place < rows.size(); ++place)
        largest[at(rows[place])] = std::max(largest[at(rows[place])], std::fabs(values[place]));
    rowScale.resize(at(size));
    columnScale.resize(at(size));
    std::transform(largest.begin(), largest.end(), rowScale.begin(), inverseScale);
    for (int column = 0; column < size; ++column) {
        double largestOfColumn = 0.0;
        for (std::int64_t place = begin[at(column)]; place < begin[at(column) + 1]; ++place) {
            values[at(place)] *= rowScale[at(rows[at(place)])];
            largestOfColumn = std::max(largestOfColumn, std::fabs(values[at(place)]));
        }
        columnScale[at(column)] = inverseScale(largestOfColumn);
        for (std::int64_t place = begin[at(column)]; place < begin[at(column) + 1]; ++place)
            values[at(place)] *= columnScale[at(column)];
    }
}

bool CSparseLu::Body::hasMirrorImages() const
{
    if (isSymmetric)
        return true;
    std::int64_t mirrored = 0, outside = 0;
    for (int column = 0; column < size; ++column)
        for (std::int64_t place = begin[at(column)]; place < begin[at(column) + 1]; ++place) {
            int const row = rows[at(place)];
            if (row == column)
                continue;
            ++outside;
            mirrored +=
                std::binary_search(rows.begin() + begin[at(row)], rows.begin() + begin[at(row) + 1], column);
        }
    return double(mirrored) >= symmetricShare * double(outside);
}

// Calls call(left, right) for the pairs of columns that are to stand apart in the order, some more than once.
template <class Call>
void CSparseLu::Body::visitPairs(Call const & call) const
{
    if (isNearlySymmetric) {
        for (int column = 0; column < size; ++column)
            for (std::int64_t place = begin[at(column)]; place < begin[at(column) + 1]; ++place)
                if (int const row = rows[at(place)]; row != column)
                    call(std::min(row, column), std::max(row, column));
        return;
    }
    // By rows, the shortest first.
    std::vector<std::int64_t> rowBegin(at(size) + 1, 0);
    for (int const row : rows)
        ++rowBegin[at(row) + 1];
    std::partial_sum(rowBegin.begin(), rowBegin.end(), rowBegin.begin());
    std::vector<int> columns(rows.size()), byLength(at(size));
    std::vector<std::int64_t> next(rowBegin.begin(), rowBegin.end() - 1);
    for (int column = 0; column < size; ++column)
        for (std::int64_t place = begin[at(column)]; place < begin[at(column) + 1]; ++place)
            columns[at(next[at(rows[at(place)])]++)] = column;
    std::iota(byLength.begin(), byLength.end(), 0);
    auto const length = [&](int row) { return rowBegin[at(row) + 1] - rowBegin[at(row)]; };
    std::stable_sort(byLength.begin(), byLength.end(),
                     [&](int left, int right) { return length(left) < length(right); });
    double pairs = 0;
    for (int const row : byLength) {
        pairs += double(length(row)) * double(length(row));
        if (pairs > pairsPerElement * double(rows.size()))
            return;
        for (std::int64_t left = rowBegin[at(row)]; left < rowBegin[at(row) + 1]; ++left)
            for (std::int64_t right = left + 1; right < rowBegin[at(row) + 1]; ++right)
                call(columns[at(left)], columns[at(right)]);
    }
}

// The columns in an order that keeps the factors sparse.
std::vector<int> CSparseLu::Body::columnOrder(CProgressCounter * progress) const
{
    std::int64_t seen = 0;
    auto const report = [&](double position) {
        if (progress && ++seen % 65536 == 0)
            progress->SetPosFloat(position);
    };
    // The upper triangle of the graph to be ordered: at first with all pairs, then with each one once.
    std::vector<std::int64_t> pairsBegin(at(size) + 1, 0);
    visitPairs([&](int left, int) {
        report(0.05);
        ++pairsBegin[at(left) + 1];
    });
    std::partial_sum(pairsBegin.begin(), pairsBegin.end(), pairsBegin.begin());
    RawArray<int> others = touchedArray<int>(at(pairsBegin.back()), [&] {
        if (progress)
            progress->SetPosFloat(0.06);
    });
    std::vector<std::int64_t> next(pairsBegin.begin(), pairsBegin.end() - 1);
    visitPairs([&](int left, int right) {
        report(0.06);
        others[at(next[at(left)]++)] = right;
    });
    std::vector<int> rowIndex{0};
    rowIndex.reserve(at(size) + 1);
    std::int64_t end = 0;
    for (int column = 0; column < size; ++column) {
        int * const first = others.data() + pairsBegin[at(column)];
        int * const last = others.data() + pairsBegin[at(column) + 1];
        std::sort(first, last);
        end = std::copy(first, std::unique(first, last), others.data() + end) - others.data();
        if (end > std::numeric_limits<int>::max())
            throw std::bad_alloc();
        rowIndex.push_back(int(end));
        report(0.07);
    }
    CPrgCntSubPhase const ordering(progress, 0.07, orderingShare - 0.07, 0, true);
    return fillReducingOrder({size, rowIndex.data(), others.data(), 0}, progress,
                             isNearlySymmetric ? dissectionSaves : dissectionSavesUnsymmetric);
}

// Rearranges the order so that subtrees of the columns' elimination tree, that of A^T A, stand together, and
// gives that tree in the new numbers. Columns of different subtrees have no row in common.
void CSparseLu::Body::postorderColumns(std::vector<int> & columnTree)
{
    std::vector<int> firstColumn(at(size), size);
    for (int k = 0; k < size; ++k) {
        int const column = columnAt[at(k)];
        for (std::int64_t place = begin[at(column)]; place < begin[at(column) + 1]; ++place)
            firstColumn[at(rows[at(place)])] = std::min(firstColumn[at(rows[at(place)])], k);
    }
    std::vector<int> const tree = eliminationTree(size, [&](int k, auto const & visit) {
        int const column = columnAt[at(k)];
        for (std::int64_t place = begin[at(column)]; place < begin[at(column) + 1]; ++place)
            visit(firstColumn[at(rows[at(place)])]);
    });
    std::vector<int> const order = postorder(tree, std::vector<int>(tree.size(), 0));
    std::vector<int> number(tree.size()), newColumns(tree.size());
    for (std::size_t k = 0; k < order.size(); ++k) {
        number[at(order[k])] = int(k);
        newColumns[k] = columnAt[at(order[k])];
    }
    columnTree.resize(tree.size());
    for (std::size_t k = 0; k < order.size(); ++k)
        columnTree[k] = tree[at(order[k])] < 0 ? size : number[at(tree[at(order[k])])];
    columnAt = std::move(newColumns);
}

// The numeric phase: the driver of SuperLU's kernels. They share the arrays that are set up here, and would
// ask for more memory when one is full, so room for what the next columns can need is made before each.
class CSparseLu::Elimination
{
public:
    Elimination(Body & body, CProgressCounter * progress);
    bool run();

private:
    void estimateWork(std::vector<int> const & columnTree);
    void findRelaxed(std::vector<int> const & columnTree);
    void makeRoom(int column, int width);
    void report(int column);
    bool hasCandidates(int column) const;
    bool pivot(int column, int & row);
    bool eliminateRelaxed(int & column);
    bool eliminatePanel(int & column);
    void takeFactors();

    Body & m_body;
    CProgressCounter * const m_progress;
    int const m_size;
    int const m_panelColumns = sp_ienv(1);
    std::vector<double> m_workBefore; // share of the work, by column
    std::vector<int> m_lastOfRelaxed; // by first column of a subtree that is taken as one supernode, or -1
    std::vector<int> m_columnPlace;   // step of each column
    std::vector<int> m_columnBegin, m_columnEnd; // in the order of elimination

    NCPformat m_store{};
    SuperMatrix m_matrix{};
    GlobalLU_t m_factors{};
    std::vector<int> m_supernodeFirst, m_supernodeOf;
    std::vector<int> m_segments, m_parent, m_explored, m_firstNonzero, m_panelRows, m_pruned, m_marker;
    std::vector<double> m_dense, m_temporary;
    std::vector<int> m_histogram;
    double m_times[NPHASES] = {};
    flops_t m_operations[NPHASES] = {};
    SuperLUStat_t m_statistics{};
};

CSparseLu::Elimination::Elimination(Body & body, CProgressCounter * progress)
    : m_body(body), m_progress(progress), m_size(body.size)
{
    std::vector<int> columnTree;
    m_body.postorderColumns(columnTree);
    findRelaxed(columnTree);
    estimateWork(columnTree);

    std::size_t const size = at(m_size);
    m_columnPlace.resize(size);
    m_columnBegin.resize(size);
    m_columnEnd.resize(size);
    for (std::size_t k = 0; k < size; ++k) {
        int const column = m_body.columnAt[k];
        m_columnPlace[at(column)] = int(k);
        m_columnBegin[k] = int(m_body.begin[at(column)]);
        m_columnEnd[k] = int(m_body.begin[at(column) + 1]);
    }
    m_store.nnz = int(m_body.rows.size());
    m_store.nzval = m_body.values.data();
    m_store.rowind = m_body.rows.data();
    m_store.colbeg = m_columnBegin.data();
    m_store.colend = m_columnEnd.data();
    m_matrix.Stype = SLU_NCP;
    m_matrix.Dtype = SLU_D;
    m_matrix.Mtype = SLU_GE;
    m_matrix.nrow = m_matrix.ncol = m_size;
    m_matrix.Store = &m_store;

    m_body.rowPlace.assign(size, -1);
    m_supernodeFirst.assign(size + 1, 0);
    m_supernodeOf.assign(size + 1, 0);
    m_body.rowsBegin.assign(size + 1, 0);
    m_body.blockBegin.assign(size + 1, 0);
    m_body.upperBegin.assign(size + 1, 0);
    m_supernodeOf[0] = -1;
    m_factors.xsup = m_supernodeFirst.data();
    m_factors.supno = m_supernodeOf.data();
    m_factors.xlsub = m_body.rowsBegin.data();
    m_factors.xlusup = m_body.blockBegin.data();
    m_factors.xusub = m_body.upperBegin.data();
    m_factors.n = m_size;
    m_factors.MemModel = USER; // an empty stack: the kernels could not allocate if they tried

    std::size_t const panel = at(m_panelColumns);
    m_segments.assign(size, 0);
    m_parent.assign(size, 0);
    m_explored.assign(size, 0);
    m_firstNonzero.assign(size * panel, -1);
    m_panelRows.assign(size * panel, -1);
    m_pruned.assign(size, 0);
    m_marker.assign(size * 3, -1);
    m_dense.assign(size * panel, 0.0);
    int const supernodeColumns = std::max(sp_ienv(3), sp_ienv(7)), rowBlock = sp_ienv(4);
    m_temporary.assign(std::max(size, at(supernodeColumns + rowBlock) * panel), 0.0);
    m_histogram.assign(at(std::max({m_panelColumns, sp_ienv(2), supernodeColumns})) + 1, 0);
    m_statistics.panel_histo = m_histogram.data();
    m_statistics.utime = m_times;
    m_statistics.ops = m_operations;
}

// Small subtrees at the bottom become one supernode each, for the price of some zeros.
void CSparseLu::Elimination::findRelaxed(std::vector<int> const & columnTree)
{
    int const most = sp_ienv(2);
    std::vector<int> members(at(m_size) + 1, 1);
    m_lastOfRelaxed.assign(at(m_size), -1);
    for (int k = 0; k < m_size; ++k)
        members[at(columnTree[at(k)])] += members[at(k)];
    for (int k = 0; k < m_size; ++k) {
        int const above = columnTree[at(k)];
        if (members[at(k)] <= most && (above == m_size || members[at(above)] > most))
            m_lastOfRelaxed[at(k - members[at(k)] + 1)] = k;
    }
}

void CSparseLu::Elimination::estimateWork(std::vector<int> const & columnTree)
{
    // Each column fills in with the subtrees below it; a column's elements are bounded by its tree path too.
    std::vector<int> height(at(m_size) + 1, 0);
    std::vector<double> elements(at(m_size), 0.0);
    for (int k = m_size - 1; k >= 0; --k)
        height[at(k)] = columnTree[at(k)] == m_size ? 1 : height[at(columnTree[at(k)])] + 1;
    std::vector<double> reach(at(m_size) + 1, 0.0);
    m_workBefore.assign(at(m_size) + 1, 0.0);
    for (int k = 0; k < m_size; ++k) {
        int const column = m_body.columnAt[at(k)];
        reach[at(k)] += double(m_body.begin[at(column) + 1] - m_body.begin[at(column)]);
        double const count = std::min(reach[at(k)], double(height[at(k)]));
        reach[at(columnTree[at(k)])] += std::max(0.0, count - 1.0);
        m_workBefore[at(k) + 1] = m_workBefore[at(k)] + count * count;
    }
}

void CSparseLu::Elimination::report(int column)
{
    if (m_progress)
        m_progress->SetPosFloat(orderingShare + (1.0 - orderingShare) * m_workBefore[at(column)] /
                                                    std::max(1.0, m_workBefore.back()));
}

// Room for all that `width` columns from this one on can append.
void CSparseLu::Elimination::makeRoom(int column, int width)
{
    std::int64_t const size = m_size;
    m_body.lowerRows.reserve(m_factors.xlsub[column] + 2 * size + 2);
    m_body.blocks.reserve(m_factors.xlusup[column] + size * width + 1);
    m_body.upper.reserve(m_factors.xusub[column] + size + 1);
    m_body.upperRows.reserve(m_factors.xusub[column] + size + 1);
    m_factors.lsub = m_body.lowerRows.data();
    m_factors.lusup = m_body.blocks.data();
    m_factors.ucol = m_body.upper.data();
    m_factors.usub = m_body.upperRows.data();
    m_factors.nzlmax = m_body.lowerRows.capacity();
    m_factors.nzlumax = m_body.blocks.capacity();
    m_factors.nzumax = std::min(m_body.upper.capacity(), m_body.upperRows.capacity());
}

// Is a row left that the column could take as its pivot? None is in a structurally singular matrix.
bool CSparseLu::Elimination::hasCandidates(int column) const
{
    int const first = m_factors.xsup[m_factors.supno[column]];
    return m_factors.xlsub[first + 1] - m_factors.xlsub[first] > column - first;
}

bool CSparseLu::Elimination::pivot(int column, int & row)
{
    int useGiven = 0;
    return hasCandidates(column) &&
           dpivotL(column, m_body.isNearlySymmetric ? symmetricThreshold : diagonalThreshold, &useGiven,
                   m_body.rowPlace.data(), nullptr, m_body.columnAt.data(), &row, &m_factors,
                   &m_statistics) == 0;
}

bool CSparseLu::Elimination::eliminateRelaxed(int & column)
{
    int const last = m_lastOfRelaxed[at(column)];
    makeRoom(column, last - column + 1);
    if (dsnode_dfs(column, last, m_body.rows.data(), m_columnBegin.data(), m_columnEnd.data(),
                   m_pruned.data(), m_marker.data(), &m_factors) != 0)
        throw std::bad_alloc();
    int const nextUpper = m_factors.xusub[column];
    int const supernode = m_factors.supno[column];
    int const first = m_factors.xsup[supernode];
    for (; column <= last; ++column) {
        m_factors.xusub[column + 1] = nextUpper;
        for (int place = m_columnBegin[at(column)]; place < m_columnEnd[at(column)]; ++place)
            m_dense[at(m_body.rows[at(place)])] = m_body.values[at(place)];
        dsnode_bmod(column, supernode, first, m_dense.data(), m_temporary.data(), &m_factors, &m_statistics);
        int row = 0;
        if (!pivot(column, row))
            return false;
    }
    return true;
}

bool CSparseLu::Elimination::eliminatePanel(int & column)
{
    int width = 1;
    while (width < m_panelColumns && column + width < m_size && m_lastOfRelaxed[at(column + width)] < 0)
        ++width;
    int segmentsOfPanel = 0;
    dpanel_dfs(m_size, width, column, &m_matrix, m_body.rowPlace.data(), &segmentsOfPanel, m_dense.data(),
               m_panelRows.data(), m_segments.data(), m_firstNonzero.data(), m_pruned.data(), m_marker.data(),
               m_parent.data(), m_explored.data(), &m_factors);
    dpanel_bmod(m_size, width, column, segmentsOfPanel, m_dense.data(), m_temporary.data(), m_segments.data(),
                m_firstNonzero.data(), &m_factors, &m_statistics);
    int const panelBegin = column;
    for (int const end = column + width; column < end; ++column) {
        makeRoom(column, 1);
        std::size_t const slot = at(column - panelBegin) * at(m_size);
        int segments = segmentsOfPanel, row = 0;
        if (dcolumn_dfs(m_size, column, m_body.rowPlace.data(), &segments, &m_panelRows[slot],
                        m_segments.data(), &m_firstNonzero[slot], m_pruned.data(), m_marker.data(),
                        m_parent.data(), m_explored.data(), &m_factors) != 0 ||
            dcolumn_bmod(column, segments - segmentsOfPanel, &m_dense[slot], m_temporary.data(),
                         &m_segments[at(segmentsOfPanel)], &m_firstNonzero[slot], panelBegin, &m_factors,
                         &m_statistics) != 0 ||
            dcopy_to_ucol(column, segments, m_segments.data(), &m_firstNonzero[slot], m_body.rowPlace.data(),
                          &m_dense[slot], &m_factors) != 0)
            throw std::bad_alloc();
        if (!pivot(column, row))
            return false;
        dpruneL(column, m_body.rowPlace.data(), row, segments, m_segments.data(), &m_firstNonzero[slot],
                m_pruned.data(), &m_factors);
        resetrep_col(segments, m_segments.data(), &m_firstNonzero[slot]);
    }
    return true;
}

// Turns the subscripts of L into steps and leaves the lists out that only the search needed.
void CSparseLu::Elimination::takeFactors()
{
    fixupL(m_size, m_body.rowPlace.data(), &m_factors);
    int const supernodes = m_factors.supno[m_size - 1] + 1;
    m_body.supernodeBegin.assign(m_factors.xsup, m_factors.xsup + supernodes);
    m_body.supernodeBegin.push_back(m_size);
    m_body.lowerRows.resize(m_factors.xlsub[m_size]);
    m_body.blocks.resize(m_factors.xlusup[m_size]);
    m_body.upper.resize(m_factors.xusub[m_size]);
    m_body.upperRows.resize(m_factors.xusub[m_size]);
}

bool CSparseLu::Elimination::run()
{
    for (int column = 0; column < m_size;) {
        report(column);
        if (!(m_lastOfRelaxed[at(column)] >= 0 ? eliminateRelaxed(column) : eliminatePanel(column)))
            return false;
    }
    takeFactors();
    return true;
}

// Solves the scaled system in place.
void CSparseLu::Body::solveScaled(double * right, std::vector<double> & work) const
{
    work.resize(at(size) * 2);
    double * const x = work.data();
    double * const below = x + size;
    for (int row = 0; row < size; ++row)
        x[rowPlace[at(row)]] = right[row];
    int const supernodes = int(supernodeBegin.size()) - 1;
    for (int supernode = 0; supernode < supernodes; ++supernode) {
        int const first = supernodeBegin[at(supernode)];
        int const columns = supernodeBegin[at(supernode) + 1] - first;
        int const * const blockRows = lowerRows.data() + rowsBegin[at(first)];
        int const height = rowsBegin[at(first) + 1] - rowsBegin[at(first)];
        double const * const block = blocks.data() + blockBegin[at(first)];
        solveUnitLower(false, columns, block, height, x + first);
        std::fill_n(below, height - columns, 0.0);
        subtractProduct(false, height - columns, 1, columns, block + columns, height, x + first, columns,
                        below, height - columns);
        for (int row = columns; row < height; ++row)
            x[blockRows[row]] += below[row - columns];
    }
    for (int supernode = supernodes; supernode-- > 0;) {
        int const first = supernodeBegin[at(supernode)];
        int const columns = supernodeBegin[at(supernode) + 1] - first;
        int const height = rowsBegin[at(first) + 1] - rowsBegin[at(first)];
        solveUpper(false, columns, blocks.data() + blockBegin[at(first)], height, x + first);
        for (int column = first; column < first + columns; ++column)
            for (int place = upperBegin[at(column)]; place < upperBegin[at(column) + 1]; ++place)
                x[upperRows.data()[place]] -= x[column] * upper.data()[place];
    }
    for (int k = 0; k < size; ++k)
        right[columnAt[at(k)]] = x[k];
}

// The same for the transposed matrix.
void CSparseLu::Body::solveScaledTransposed(double * right, std::vector<double> & work) const
{
    work.resize(at(size) * 2);
    double * const x = work.data();
    double * const below = x + size;
    for (int k = 0; k < size; ++k)
        x[k] = right[columnAt[at(k)]];
    int const supernodes = int(supernodeBegin.size()) - 1;
    for (int supernode = 0; supernode < supernodes; ++supernode) {
        int const first = supernodeBegin[at(supernode)];
        int const columns = supernodeBegin[at(supernode) + 1] - first;
        int const height = rowsBegin[at(first) + 1] - rowsBegin[at(first)];
        for (int column = first; column < first + columns; ++column)
            for (int place = upperBegin[at(column)]; place < upperBegin[at(column) + 1]; ++place)
                x[column] -= x[upperRows.data()[place]] * upper.data()[place];
        solveUpper(true, columns, blocks.data() + blockBegin[at(first)], height, x + first);
    }
    for (int supernode = supernodes; supernode-- > 0;) {
        int const first = supernodeBegin[at(supernode)];
        int const columns = supernodeBegin[at(supernode) + 1] - first;
        int const * const blockRows = lowerRows.data() + rowsBegin[at(first)];
        int const height = rowsBegin[at(first) + 1] - rowsBegin[at(first)];
        double const * const block = blocks.data() + blockBegin[at(first)];
        for (int row = columns; row < height; ++row)
            below[row - columns] = x[blockRows[row]];
        subtractProduct(true, columns, 1, height - columns, block + columns, height, below, height - columns,
                        x + first, columns);
        solveUnitLower(true, columns, block, height, x + first);
    }
    for (int row = 0; row < size; ++row)
        right[row] = x[rowPlace[at(row)]];
}

double CSparseLu::Body::condition(CProgressCounter * progress) const
{
    double norm = 0.0;
    for (int column = 0; column < size; ++column) {
        double sum = 0.0;
        for (std::int64_t place = begin[at(column)]; place < begin[at(column) + 1]; ++place)
            sum += std::fabs(values[at(place)]);
        norm = std::max(norm, sum);
    }
    std::vector<double> work;
    auto const reported = [&](auto solve) {
        return [this, solve, progress, &work](double * vector) {
            if (progress)
                progress->SetPosFloat(1.0);
            (this->*solve)(vector, work);
        };
    };
    return norm * estimateNorm(size, reported(&Body::solveScaled), reported(&Body::solveScaledTransposed));
}

// Residual of the scaled system, and the greatest ratio of its elements to the sums of magnitudes that they
// are the differences of: the backward error by rows (Oettli and Prager).
double CSparseLu::Body::residual(double const * solution, double const * right, double * result) const
{
    std::vector<double> magnitude(at(size));
    for (int row = 0; row < size; ++row) {
        result[row] = right[row];
        magnitude[at(row)] = std::fabs(right[row]);
    }
    for (int column = 0; column < size; ++column)
        for (std::int64_t place = begin[at(column)]; place < begin[at(column) + 1]; ++place) {
            double const product = values[at(place)] * solution[column];
            result[rows[at(place)]] -= product;
            magnitude[at(rows[at(place)])] += std::fabs(product);
        }
    double error = 0.0;
    for (int row = 0; row < size; ++row)
        if (result[row] != 0.0)
            error = std::max(error, std::fabs(result[row]) / magnitude[at(row)]);
    return error;
}

// A pivot that should be 0 but is a rounding error shows in any right part: the terms of its product with
// the solution cancel from far above the right part. The measure does not change when rows or columns are
// scaled.
bool CSparseLu::Body::isSingularToWorkingPrecision() const
{
    std::vector<double> rowSums(at(size), 0.0), solution(at(size)), sums(at(size), 0.0), work;
    for (std::size_t place = 0; place < rows.size(); ++place)
        rowSums[at(rows[place])] += std::fabs(values[place]);
    std::minstd_rand random;
    for (std::size_t row = 0; row < rowSums.size(); ++row)
        solution[row] = rowSums[row] * (random() % 2 ? 1.0 : -1.0);
    solveScaled(solution.data(), work);
    for (int column = 0; column < size; ++column)
        for (std::int64_t place = begin[at(column)]; place < begin[at(column) + 1]; ++place)
            sums[at(rows[at(place)])] += std::fabs(values[at(place)] * solution[at(column)]);
    for (std::size_t row = 0; row < rowSums.size(); ++row)
        if (!(sums[row] <= largestGrowth * rowSums[row]))
            return true;
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
    body->takeColumns(pattern, upperOnly, values);
    if (body->rows.size() > at(std::numeric_limits<int>::max()))
        throw std::bad_alloc();
    body->equilibrate();
    if (progress)
        progress->SetPosFloat(0.05);
    body->isNearlySymmetric = body->hasMirrorImages();
    body->columnAt = body->columnOrder(progress);
    CBlasSingleThread const singleThread;
    CBlasMemory const kernelMemory; // the kernels call BLAS
    if (!Elimination(*body, progress).run() || body->isSingularToWorkingPrecision())
        return false;
    if (progress)
        progress->SetPosFloat(1.0);
    m_body = std::move(body);
    return true;
}

double CSparseLu::conditionEstimate(CProgressCounter * progress) const
{
    if (!m_body)
        return 0.0;
    CBlasSingleThread const singleThread;
    return m_body->condition(progress);
}

bool CSparseLu::solve(double const * rightParts, int count, double * solutions, CProgressCounter * progress)
{
    if (!m_body)
        return false;
    Body const & body = *m_body;
    std::size_t const size = at(body.size);
    std::vector<double> right(size), solution(size), improved(size), change(size), work;
    CBlasSingleThread const singleThread;
    for (int part = 0; part < count; ++part) {
        double const * const given = rightParts + size * at(part);
        std::transform(given, given + size, body.rowScale.begin(), right.begin(), std::multiplies<double>());
        solution = right;
        body.solveScaled(solution.data(), work);
        // Refined while that halves the error at least.
        double error = body.residual(solution.data(), right.data(), change.data());
        if (progress)
            progress->SetPosFloat((part + 0.5) / count);
        for (int step = 0; step < mostRefinements && error > std::numeric_limits<double>::epsilon(); ++step) {
            body.solveScaled(change.data(), work);
            std::transform(solution.begin(), solution.end(), change.begin(), improved.begin(),
                           std::plus<double>());
            double const newError = body.residual(improved.data(), right.data(), change.data());
            if (!(newError < error))
                break;
            solution.swap(improved);
            if (newError > 0.5 * std::exchange(error, newError))
                break;
        }
        double * const result = solutions + size * at(part);
        for (std::size_t row = 0; row < size; ++row)
            result[row] = solution[row] * body.columnScale[row];
        if (!std::all_of(result, result + size, [](double value) { return std::isfinite(value); }))
            return false;
    }
    return true;
}

} // namespace QzBackend
