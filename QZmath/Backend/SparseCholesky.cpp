// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/SparseCholesky.h>

#include <QZmath/Backend/Blas.h>
#include <QZmath/Backend/FillOrdering.h>
#include <QZmath/Backend/Lapack.h>
#include <QZmath/Backend/Place.h>
#include <QZmath/Backend/RawArray.h>
#include <QZmath/Backend/SupernodalStructure.h>
#include <QZmath/Backend/TreeTasks.h>
#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <numeric>
#include <vector>

namespace QzBackend
{
namespace
{

// Blocks of this width, depth and height keep a matrix kernel near its peak speed and below some 0.02
// seconds.
constexpr int blockColumns = 128;
constexpr int blockInner = 512;
constexpr int blockRows = 2048;
// Subtrees with less work than this, in multiplications and additions, are one task: a few milliseconds.
constexpr double smallestTaskWork = 2e7;
// A supernode's columns are updated in so many parts at most.
constexpr int mostUpdateParts = 16;
// Less work than this is done by one thread.
constexpr double smallestParallelWork = 5e7;
// Kernels with less work than this are not divided.
constexpr double smallestDividedWork = 1e7;
// What it takes to move an element between blocks, in the same unit.
constexpr double workPerMove = 20;
// A pivot below this share of its diagonal element consists of rounding errors.
constexpr double smallestPivotShare = 128 * std::numeric_limits<double>::epsilon();
// A pivot below this share asks for a closer look: in large singular matrices what rounding errors leave of a
// pivot grows with the number of rows.
constexpr double suspectPivotShare = 1e-8;
// A matrix of this condition is singular but for rounding errors.
constexpr double largestCondition = 0.2 / std::numeric_limits<double>::epsilon();
// Nanoseconds that the analysis takes for each element, and the part of it that finds the structure.
constexpr double analysisTimeOfElement = 65;
constexpr double analysisTimeOfRow = 250;
constexpr double structureShare = 0.7;
// Right parts that are solved for at the same time.
constexpr int solvedTogether = 16;
// Elements of the factor between two reports of a solve: a few milliseconds.
constexpr double elementsBetweenReports = 2e6;

// A pivot is not positive, or not beyond rounding errors.
struct NotDefinite
{};

} // namespace

struct CSparseCholesky::Body
{
    SparsePattern pattern;
    std::vector<int> order;    // order[k] is the row eliminated k-th
    std::vector<int> position; // its inverse
    SupernodalStructure structure;
    // The elements of each row's column whose row is eliminated later than the column's own: they stand in
    // other rows of the upper triangle.
    std::vector<std::int64_t> columnBegin;
    RawArray<int> columnPosition, columnRow;
    std::unique_ptr<double[]> elements; // of the factor; not initialised before they are computed
    bool isFactored = false;

    void transposeReversed(CProgressCounter * progress, double begin, double end);
    double * block(int supernode) const { return elements.get() + structure.blockBegin[at(supernode)]; }
    int highest() const;
    void solveTogether(int count, double * columns, std::vector<double> & below,
                       std::function<void(double position)> const & report) const;
    double condition(double const * values, double shift, CProgressCounter * progress) const;
};

// One numeric factorisation: left-looking over the supernodes, each one changed by its sources in rising
// order, so that every sum has its fixed order however the tree is divided among threads.
class CSparseCholesky::Factorisation
{
public:
    Factorisation(Body const & body, double const * values, double shift, CProgressCounter * progress);
    void run(int threads);
    // The least share that a pivot is of its diagonal element.
    double leastPivotShare() const;

private:
    struct Scratch
    {
        std::vector<int> rowOf;       // row in the block of the supernode at hand, by row of the factor
        std::vector<double> update;   // what a source takes off
        std::vector<int> relative;    // its rows in the block of the supernode
        std::vector<double> diagonal; // the matrix's own, of the supernode's columns
        double leastPivotShare = 1.0;
    };
    static std::vector<int> subtreeRoots(SupernodalStructure const & structure, double work);
    static std::vector<int> taskTree(SupernodalStructure const & structure, std::vector<int> const & lasts);
    void factorSupernode(int slot, int supernode);
    void gather(int supernode, int firstColumn, int lastColumn, Scratch & own, Scratch & shared);
    void scatter(int supernode, int firstColumn, int lastColumn, Scratch & shared);
    void factorBlock(int slot, int height, int columns, double * block, double const * diagonal);

    Body const & m_body;
    SupernodalStructure const & m_structure;
    double const * const m_values;
    double const m_shift;
    double const m_taskWork;
    std::vector<int> const m_lastOfTask; // tasks are runs of supernodes, one behind the other
    std::vector<int> const m_parentOfTask;
    TreeTasks m_tasks;
    std::vector<Scratch> m_scratch; // by slot
};

CSparseCholesky::Factorisation::Factorisation(Body const & body, double const * values, double shift,
                                              CProgressCounter * progress)
    : m_body(body), m_structure(body.structure), m_values(values), m_shift(shift),
      m_taskWork(std::max(smallestTaskWork, body.structure.work / 2000)),
      m_lastOfTask(subtreeRoots(body.structure, m_taskWork)),
      m_parentOfTask(taskTree(body.structure, m_lastOfTask)),
      m_tasks(m_parentOfTask, progress,
              body.structure.work + workPerMove * double(body.structure.blockBegin.back()))
{}

// The last supernode of each task: the roots of the subtrees that are small enough for one, and all above.
std::vector<int> CSparseCholesky::Factorisation::subtreeRoots(SupernodalStructure const & structure,
                                                              double work)
{
    std::vector<double> subtree(at(structure.supernodes()), 0.0);
    for (int supernode = 0; supernode < structure.supernodes(); ++supernode) {
        double const height = structure.heightOf(supernode), columns = structure.columnsOf(supernode);
        subtree[at(supernode)] += columns * (height * height - height * columns + columns * columns / 3);
        if (int const above = structure.parent[at(supernode)]; above >= 0)
            subtree[at(above)] += subtree[at(supernode)];
    }
    std::vector<int> lasts;
    for (int supernode = 0; supernode < structure.supernodes(); ++supernode) {
        int const above = structure.parent[at(supernode)];
        if (above < 0 || subtree[at(above)] > work)
            lasts.push_back(supernode);
    }
    return lasts;
}

std::vector<int> CSparseCholesky::Factorisation::taskTree(SupernodalStructure const & structure,
                                                          std::vector<int> const & lasts)
{
    std::vector<int> parent;
    parent.reserve(lasts.size());
    for (int const last : lasts) {
        // Above a task's last supernode stands one that is a task for itself.
        int const above = structure.parent[at(last)];
        parent.push_back(
            above < 0 ? -1 : int(std::lower_bound(lasts.begin(), lasts.end(), above) - lasts.begin()));
    }
    return parent;
}

void CSparseCholesky::Factorisation::run(int threads)
{
    threads = std::clamp(threads, 1, std::max(1, int(m_lastOfTask.size())));
    m_scratch.resize(at(threads));
    m_tasks.run(threads, [&](int slot, int task) {
        m_scratch[at(slot)].rowOf.resize(at(m_body.pattern.size));
        int const begin = task == 0 ? 0 : m_lastOfTask[at(task) - 1] + 1;
        for (int supernode = begin; supernode <= m_lastOfTask[at(task)]; ++supernode)
            factorSupernode(slot, supernode);
    });
}

double CSparseCholesky::Factorisation::leastPivotShare() const
{
    double least = 1.0;
    for (Scratch const & scratch : m_scratch)
        least = std::min(least, scratch.leastPivotShare);
    return least;
}

void CSparseCholesky::Factorisation::factorSupernode(int slot, int supernode)
{
    Scratch & scratch = m_scratch[at(slot)];
    int const columns = m_structure.columnsOf(supernode);
    int const height = m_structure.heightOf(supernode);
    int const * const rows = m_structure.rowsOf(supernode);
    for (int k = 0; k < height; ++k)
        scratch.rowOf[at(rows[k])] = k;
    scratch.diagonal.resize(at(columns));
    int const parts = std::clamp(columns / blockColumns, 1, mostUpdateParts);
    m_tasks.forParts(slot, parts, [&](int partSlot, int part) {
        gather(supernode, int(std::int64_t(columns) * part / parts),
               int(std::int64_t(columns) * (part + 1) / parts), m_scratch[at(partSlot)], scratch);
    });
    factorBlock(slot, height, columns, m_body.block(supernode), scratch.diagonal.data());
}

// Fills some columns of a supernode's block with the matrix's elements.
void CSparseCholesky::Factorisation::scatter(int supernode, int firstColumn, int lastColumn, Scratch & shared)
{
    SparsePattern const & pattern = m_body.pattern;
    int const begin = m_structure.first(supernode);
    int const leading = m_structure.heightOf(supernode);
    int const * const rowOf = shared.rowOf.data();
    for (int local = firstColumn; local < lastColumn; ++local) {
        int const column = begin + local;
        int const row = m_body.order[at(column)];
        double * const target = m_body.block(supernode) + std::ptrdiff_t(local) * leading;
        std::fill(target + local, target + leading, 0.0);
        pattern.visitUpper(row, [&](int, int other, int place) {
            if (int const later = m_body.position[at(other)]; later >= column)
                target[rowOf[later]] = m_values[place];
        });
        for (std::int64_t slot = m_body.columnBegin[at(row)]; slot < m_body.columnBegin[at(row) + 1]; ++slot)
            target[rowOf[m_body.position[at(m_body.columnRow[at(slot)])]]] =
                m_values[m_body.columnPosition[at(slot)]];
        target[local] += m_shift;
        shared.diagonal[at(local)] = target[local];
    }
    m_tasks.worked(workPerMove * double(leading) * (lastColumn - firstColumn));
}

// The matrix's elements in some columns of a supernode, less what earlier supernodes take off.
void CSparseCholesky::Factorisation::gather(int supernode, int firstColumn, int lastColumn, Scratch & own,
                                            Scratch & shared)
{
    scatter(supernode, firstColumn, lastColumn, shared);
    int const begin = m_structure.first(supernode);
    int const leading = m_structure.heightOf(supernode);
    double * const block = m_body.block(supernode);
    for (std::int64_t number = m_structure.sourcesBegin[at(supernode)];
         number < m_structure.sourcesBegin[at(supernode) + 1]; ++number) {
        int const source = m_structure.sources[at(number)];
        int const sourceLeading = m_structure.heightOf(source);
        int const depth = m_structure.columnsOf(source);
        int const * const sourceRows = m_structure.rowsOf(source);
        int const * const sourceEnd = sourceRows + sourceLeading;
        int const * const firstRow =
            std::lower_bound(sourceRows + m_structure.sourceRow[at(number)], sourceEnd, begin + firstColumn);
        int const * const lastRow = std::lower_bound(firstRow, sourceEnd, begin + lastColumn);
        double const * const sourceBlock = m_body.block(source);
        int const end = int(lastRow - sourceRows);
        for (int left = int(firstRow - sourceRows); left < end; left += blockColumns) {
            int const width = std::min(blockColumns, end - left);
            own.relative.resize(at(sourceLeading - left));
            for (int row = left; row < sourceLeading; ++row)
                own.relative[at(row - left)] = shared.rowOf[at(sourceRows[row])];
            for (int top = left; top < sourceLeading; top += blockRows) {
                int const height = std::min(blockRows, sourceLeading - top);
                if (own.update.size() < at(height) * at(width))
                    own.update.resize(at(height) * at(width));
                double * const update = own.update.data();
                for (int inner = 0; inner < depth; inner += blockInner) {
                    int const part = std::min(blockInner, depth - inner);
                    double const * const operands = sourceBlock + std::ptrdiff_t(inner) * sourceLeading;
                    (inner == 0 ? productTransposed
                                : addProductTransposed)(height, width, part, operands + top, sourceLeading,
                                                        operands + left, sourceLeading, update, height);
                    m_tasks.worked(double(height) * width * part);
                }
                int const * const relative = own.relative.data() + (top - left);
                for (int column = 0; column < width; ++column) {
                    double * const target = block + std::ptrdiff_t(own.relative[at(column)]) * leading;
                    double const * const change = update + std::ptrdiff_t(column) * height;
                    for (int row = std::max(0, column - (top - left)); row < height; ++row)
                        target[relative[row]] -= change[row];
                }
            }
        }
    }
}

// Dense Cholesky factorisation of the first columns of a block with at least as many rows. `diagonal` holds
// the matrix's own diagonal elements.
void CSparseCholesky::Factorisation::factorBlock(int slot, int height, int columns, double * block,
                                                 double const * diagonal)
{
    double & leastShare = m_scratch[at(slot)].leastPivotShare;
    for (int begin = 0; begin < columns; begin += blockColumns) {
        int const width = std::min(blockColumns, columns - begin);
        double * const panel = block + begin + std::ptrdiff_t(begin) * height;
        int const rows = height - begin;
        // Rows from..to of the panel, in parts of a size that does not depend on who is there to help.
        auto const forRows = [&](int from, double workOfRow, auto const & call) {
            int const all = rows - from;
            int const parts =
                workOfRow * all < smallestDividedWork ? (all + blockRows - 1) / blockRows : (all + 511) / 512;
            m_tasks.forParts(slot, parts, [&](int, int part) {
                int const top = from + int(std::int64_t(all) * part / parts);
                call(top, from + int(std::int64_t(all) * (part + 1) / parts) - top);
            });
        };
        if (begin > 0)
            forRows(0, double(width) * begin, [&](int top, int part) {
                for (int inner = 0; inner < begin; inner += blockInner) {
                    int const depth = std::min(blockInner, begin - inner);
                    double const * const source = block + begin + std::ptrdiff_t(inner) * height;
                    gemmTransposed(part, width, depth, -1.0, source + top, height, source, height,
                                   panel + top, height);
                    m_tasks.worked(double(part) * width * depth);
                }
            });
        if (!choleskyLower(width, panel, height))
            throw NotDefinite();
        for (int k = 0; k < width; ++k) {
            double const pivot = panel[k + std::ptrdiff_t(k) * height];
            double const share = pivot * pivot / diagonal[begin + k];
            if (!(share > smallestPivotShare) || !std::isfinite(pivot))
                throw NotDefinite();
            leastShare = std::min(leastShare, share);
        }
        if (rows > width)
            forRows(width, double(width) * width, [&](int top, int part) {
                solveLowerTransposedFromRight(part, width, panel, height, panel + top, height);
                m_tasks.worked(double(part) * width * width * 0.5);
            });
    }
}

void CSparseCholesky::Body::transposeReversed(CProgressCounter * progress, double begin, double end)
{
    columnBegin.assign(at(pattern.size) + 1, 0);
    auto const visitReversed = [&](double from, double to, auto && visit) {
        for (int row = 0; row < pattern.size; ++row) {
            if (progress && row % 16 == 0)
                progress->SetPosFloat(begin + (end - begin) * (from + (to - from) * row / pattern.size));
            pattern.visitUpper(row, [&](int upper, int other, int place) {
                if (position[at(other)] < position[at(upper)])
                    visit(upper, other, place);
            });
        }
    };
    visitReversed(0.0, 0.4, [&](int, int other, int) { ++columnBegin[at(other) + 1]; });
    std::partial_sum(columnBegin.begin(), columnBegin.end(), columnBegin.begin());
    auto const report = [&] {
        if (progress)
            progress->SetPosFloat(begin + (end - begin) * 0.4);
    };
    columnPosition = touchedArray<int>(at(columnBegin.back()), report);
    columnRow = touchedArray<int>(at(columnBegin.back()), report);
    std::vector<std::int64_t> next(columnBegin.begin(), columnBegin.end() - 1);
    visitReversed(0.4, 1.0, [&](int upper, int other, int place) {
        std::size_t const slot = at(next[at(other)]++);
        columnPosition[slot] = place;
        columnRow[slot] = upper;
    });
}

// Solves for some right parts, one behind the other in the order of elimination, in their place.
void CSparseCholesky::Body::solveTogether(int count, double * columns, std::vector<double> & below,
                                          std::function<void(double)> const & report) const
{
    int const size = pattern.size;
    double const allElements = 2.0 * double(structure.blockBegin.back());
    double seen = 0, reported = 0;
    auto const countElements = [&](int supernode) {
        seen += double(structure.blockBegin[at(supernode) + 1] - structure.blockBegin[at(supernode)]);
        if (seen > reported + elementsBetweenReports / count) {
            reported = seen;
            report(seen / allElements);
        }
    };
    auto const visitBelow = [&](int supernode, auto const & visit) {
        int const own = structure.columnsOf(supernode), height = structure.heightOf(supernode);
        int const * const rows = structure.rowsOf(supernode) + own;
        for (int part = 0; part < count; ++part)
            for (int row = 0; row < height - own; ++row)
                visit(below[at(row) + at(part) * at(height - own)],
                      columns[at(rows[row]) + at(part) * at(size)]);
    };
    for (int supernode = 0; supernode < structure.supernodes(); ++supernode) {
        int const own = structure.columnsOf(supernode), height = structure.heightOf(supernode);
        double * const first = columns + structure.first(supernode);
        solveLower(false, own, count, block(supernode), height, first, size);
        std::fill_n(below.begin(), at(height - own) * at(count), 0.0);
        subtractProduct(false, height - own, count, own, block(supernode) + own, height, first, size,
                        below.data(), height - own);
        visitBelow(supernode, [](double change, double & element) { element += change; });
        countElements(supernode);
    }
    for (int supernode = structure.supernodes(); supernode-- > 0;) {
        int const own = structure.columnsOf(supernode), height = structure.heightOf(supernode);
        double * const first = columns + structure.first(supernode);
        visitBelow(supernode, [](double & solved, double element) { solved = element; });
        subtractProduct(true, own, count, height - own, block(supernode) + own, height, below.data(),
                        height - own, first, size);
        solveLower(true, own, count, block(supernode), height, first, size);
        countElements(supernode);
    }
}

int CSparseCholesky::Body::highest() const
{
    int result = 0;
    for (int supernode = 0; supernode < structure.supernodes(); ++supernode)
        result = std::max(result, structure.heightOf(supernode));
    return result;
}

// Estimate for the factored matrix, scaled to a diagonal of ones.
double CSparseCholesky::Body::condition(double const * values, double shift,
                                        CProgressCounter * progress) const
{
    int const size = pattern.size;
    std::vector<double> root(at(size), 0.0), sums(at(size), 0.0), columns(at(size));
    std::vector<double> below(at(highest()));
    for (int row = 0; row < size; ++row)
        pattern.visitUpper(row, [&](int, int column, int place) {
            if (column == row)
                root[at(row)] = std::sqrt(values[place] + shift);
        });
    for (int row = 0; row < size; ++row)
        pattern.visitUpper(row, [&](int, int column, int place) {
            if (column != row) {
                double const scaled = std::fabs(values[place]) / (root[at(row)] * root[at(column)]);
                sums[at(row)] += scaled;
                sums[at(column)] += scaled;
            }
        });
    auto const solveScaled = [&](double * vector) {
        for (std::size_t k = 0; k < columns.size(); ++k)
            columns[k] = vector[order[k]] * root[at(order[k])];
        solveTogether(1, columns.data(), below, [&](double) {
            if (progress)
                progress->SetPosFloat(1.0); // not far from there, whatever it finds
        });
        for (std::size_t k = 0; k < columns.size(); ++k)
            vector[order[k]] = columns[k] * root[at(order[k])];
    };
    return (1.0 + *std::max_element(sums.begin(), sums.end())) * estimateNorm(size, solveScaled, solveScaled);
}

CSparseCholesky::CSparseCholesky() = default;
CSparseCholesky::~CSparseCholesky() = default;

void CSparseCholesky::analyze(SparsePattern const & pattern, CProgressCounter * progress)
{
    m_body.reset();
    auto body = std::make_unique<Body>();
    body->pattern = pattern;
    double const elements = pattern.elements(), neighbours = 2 * std::max(0.0, elements - pattern.size);
    double const orderingTime = expectedOrderingTime(pattern.size, neighbours);
    double const orderingShare =
        orderingTime /
        std::max(1.0, orderingTime + elements * analysisTimeOfElement + pattern.size * analysisTimeOfRow);
    double const analysisShare = 1.0 - orderingShare;
    {
        CPrgCntSubPhase const ordering(progress, 0.0, orderingShare, 0, true);
        body->order = fillReducingOrder(pattern, progress);
    }
    {
        CPrgCntSubPhase const analysis(progress, orderingShare, structureShare * analysisShare, 0, true);
        body->structure = analyzeSupernodes(pattern, body->order, progress);
    }
    body->position.resize(body->order.size());
    for (std::size_t k = 0; k < body->order.size(); ++k)
        body->position[at(body->order[k])] = int(k);
    body->transposeReversed(progress, orderingShare + structureShare * analysisShare, 1.0);
    m_body = std::move(body);
    if (progress)
        progress->SetPosFloat(1.0);
}

bool CSparseCholesky::factor(double const * values, double diagonalShift, CProgressCounter * progress)
{
    if (!m_body)
        return false;
    m_body->isFactored = false;
    if (!m_body->elements)
        m_body->elements.reset(new double[at(m_body->structure.blockBegin.back())]);
    CBlasSingleThread const singleThread;
    double leastShare = 0.0;
    try {
        int const threads = m_body->structure.work < smallestParallelWork
                                ? 1
                                : CVescaThreadingTasksHelper::getNumOfPhisicalThread();
        Factorisation factorisation(*m_body, values, diagonalShift, progress);
        factorisation.run(CBlasMemory::threadsProvidedFor(threads));
        leastShare = factorisation.leastPivotShare();
    } catch (NotDefinite const &) {
        return false;
    }
    // A shifted matrix may be as close to a singular one as the shift leaves it.
    if (diagonalShift == 0.0 && leastShare < suspectPivotShare &&
        !(m_body->condition(values, diagonalShift, progress) < largestCondition))
        return false;
    m_body->isFactored = true;
    return true;
}

double CSparseCholesky::conditionEstimate(double const * values, double diagonalShift,
                                          CProgressCounter * progress) const
{
    if (!m_body || !m_body->isFactored)
        return 0.0;
    CBlasSingleThread const singleThread;
    return m_body->condition(values, diagonalShift, progress);
}

bool CSparseCholesky::solve(double const * rightParts, int count, double * solutions,
                            CProgressCounter * progress)
{
    if (!m_body || !m_body->isFactored)
        return false;
    std::size_t const size = at(m_body->pattern.size);
    std::size_t const together = at(std::clamp(count, 0, solvedTogether));
    std::vector<double> columns(size * together), below(at(m_body->highest()) * together);
    CBlasSingleThread const singleThread;
    for (int begin = 0; begin < count; begin += solvedTogether) {
        int const parts = std::min(solvedTogether, count - begin);
        double const * const right = rightParts + size * at(begin);
        for (std::size_t part = 0; part < at(parts); ++part)
            for (std::size_t k = 0; k < size; ++k)
                columns[k + part * size] = right[at(m_body->order[k]) + part * size];
        m_body->solveTogether(parts, columns.data(), below, [&](double position) {
            if (progress)
                progress->SetPosFloat((begin + position * parts) / count);
        });
        if (!std::all_of(columns.begin(), columns.begin() + std::ptrdiff_t(size * at(parts)),
                         [](double value) { return std::isfinite(value); }))
            return false;
        double * const solution = solutions + size * at(begin);
        for (std::size_t part = 0; part < at(parts); ++part)
            for (std::size_t k = 0; k < size; ++k)
                solution[at(m_body->order[k]) + part * size] = columns[k + part * size];
    }
    return true;
}

} // namespace QzBackend
