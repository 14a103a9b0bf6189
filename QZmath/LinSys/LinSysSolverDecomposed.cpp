// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverDecomposed.h>

#include <QZmath/LinSys/CsrMatrixDetail.h>
#include <QZmath/LinSys/IterativeSolveDetail.h>
#include <QZmath/LinSys/LinSysSolverSparseDss.h>
#include <QZmath/LinSys/LinSysSolverSparseMKL.h>

#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>
#include <QZsys/Threads.h>

#include <algorithm>
#include <memory>

namespace REmath
{

namespace
{

// One block of the tree: the rows from `first` up to, but not including, `last`. The tasks of a level write
// to disjoint parts of one solution.
template <class T>
class tf_subsystemTask final : public IVescaInvokeProc
{
public:
    tf_subsystemTask(ICsrMatrix<T> const & matrix, bool positiveDefinite, T const * rightPart, T * solution,
                     int first, int last, double eps, int maxIterations, bool hasChildren)
        : m_matrix(matrix), m_positiveDefinite(positiveDefinite), m_rightPart(rightPart),
          m_solution(solution), m_first(first), m_last(last), m_eps(eps), m_maxIterations(maxIterations),
          m_succeeded(false), m_iterationsUsed(0), m_limitReached(false), m_relativeResidual(0),
          m_hasChildren(hasChildren)
    {}

    void Invoke() override
    {
        if (m_first == m_last) {
            m_succeeded = true;
        } else if (m_first == 0 && m_last == m_matrix.getMatrixSize()) {
            solveBlock(m_matrix);
        } else {
            CCSRSquareMatrix<T> block;
            block.makeSelfSubMatrix(m_first, m_last, m_matrix);
            solveBlock(block);
        }
    }

    bool isSucceeded() const { return m_succeeded; }
    int iterationsUsed() const { return m_iterationsUsed; }
    bool isIterationLimitReached() const { return m_limitReached; }
    T relativeResidual() const { return m_relativeResidual; }

private:
    void solveBlock(ICsrMatrix<T> const & block)
    {
        if (!m_hasChildren) {
            // A block that cannot be solved alone keeps its zeros: the merged blocks above it solve it all
            // the same.
            CLinSysSolverSparseDss<T>().solveForExplicitMatrix(m_solution, block, m_positiveDefinite,
                                                               m_rightPart, nullptr);
            m_succeeded = true;
            return;
        }
        CLinSysSolverSparseMKL<T> solver(static_cast<T>(m_eps), m_maxIterations);
        m_iterationsUsed = solver.solveForExplicitMatrix(m_solution, block, m_rightPart, nullptr);
        m_succeeded = m_iterationsUsed >= 0;
        m_limitReached = solver.isIterationLimitReached();
        m_relativeResidual = solver.getRelativeResidual();
    }

    ICsrMatrix<T> const & m_matrix;
    bool m_positiveDefinite;
    T const * m_rightPart;
    T * m_solution;
    int m_first;
    int m_last;
    double m_eps;
    int m_maxIterations;
    bool m_succeeded;
    int m_iterationsUsed;
    bool m_limitReached;
    T m_relativeResidual;
    bool m_hasChildren;
};

template <class T>
using TaskLevels = std::vector<std::vector<std::unique_ptr<tf_subsystemTask<T>>>>;

// The tree of one right part, by level from the root down, each level from left to right.
template <class T>
class tf_BinaryDependentTaskManager
{
public:
    tf_BinaryDependentTaskManager(ICsrMatrix<T> const & matrix, bool positiveDefinite,
                                  std::vector<int> const & boundaries, T const * rightPart, T * solution,
                                  double eps, int maxIterations)
        : m_matrix(matrix), m_positiveDefinite(positiveDefinite), m_boundaries(boundaries),
          m_rightPart(rightPart), m_solution(solution), m_eps(eps), m_maxIterations(maxIterations)
    {
        build(0, boundaries.size() - 1, 0);
    }

    TaskLevels<T> const & levels() const { return m_levels; }

private:
    // Positions of the boundaries array, both included.
    void build(std::size_t begin, std::size_t end, std::size_t depth)
    {
        if (begin == end)
            return;
        std::size_t const middle = begin + (end - begin) / 2;
        bool const hasChildren = middle != begin && middle != end;
        if (m_levels.size() <= depth)
            m_levels.resize(depth + 1);
        int const first = m_boundaries[begin];
        m_levels[depth].push_back(std::make_unique<tf_subsystemTask<T>>(
            m_matrix, m_positiveDefinite, m_rightPart + first, m_solution + first, first, m_boundaries[end],
            m_eps, m_maxIterations, hasChildren));
        if (hasChildren) {
            build(begin, middle, depth + 1);
            build(middle, end, depth + 1);
        }
    }

    ICsrMatrix<T> const & m_matrix;
    bool m_positiveDefinite;
    std::vector<int> const & m_boundaries;
    T const * m_rightPart;
    T * m_solution;
    double m_eps;
    int m_maxIterations;
    TaskLevels<T> m_levels;
};

// Runs the blocks of one level in batches of as many as there are threads. Their iterations together, or -1
// when one of them failed. Tasks never touch the counter.
template <class T>
int runLevel(std::vector<std::unique_ptr<tf_subsystemTask<T>>> const & level, CProgressCounter * progress)
{
    std::size_t const threads =
        static_cast<std::size_t>(std::max(1, CVescaThreadingTasksHelper::getNumOfPhisicalThread()));
    int iterations = 0;
    for (std::size_t first = 0; first < level.size(); first += threads) {
        std::size_t const last = std::min(first + threads, level.size());
        std::vector<IVescaInvokeProc *> batch;
        for (std::size_t task = first; task < last; ++task) {
            if (progress != nullptr)
                progress->SetPosFloat(static_cast<double>(task) / static_cast<double>(level.size()));
            batch.push_back(level[task].get());
        }
        if (threads < 2)
            batch.front()->Invoke();
        else
            CVescaThreadingTasksHelper::performInParallel(batch.data(), static_cast<int>(batch.size()),
                                                          nullptr);
        for (std::size_t task = first; task < last; ++task) {
            if (!level[task]->isSucceeded())
                return -1;
            iterations += level[task]->iterationsUsed();
        }
    }
    if (progress != nullptr)
        progress->SetPosFloat(1.0);
    return iterations;
}

} // namespace

template <class T>
CLinSysSolverDecomposed<T>::CLinSysSolverDecomposed(std::vector<int> const & boundaries, double eps,
                                                    int maxIterations)
    : m_boundaries(boundaries), m_eps(eps), m_maxIterations(maxIterations), m_iterationsUsed(0),
      m_limitReached(false), m_relativeResidual(0)
{}

template <class T>
CLinSysSolverDecomposed<T>::~CLinSysSolverDecomposed() = default;

template <class T>
bool CLinSysSolverDecomposed<T>::onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                                               IVertexPosInformer<T> const ** informers,
                                               IEqSysResultReciever<T> ** recievers,
                                               CProgressCounter * progress)
{
    int const size = system.GetEquationsNumber();
    if (m_boundaries.empty() || m_boundaries.front() != 0)
        m_boundaries.insert(m_boundaries.begin(), 0);
    if (m_boundaries.back() != size)
        m_boundaries.push_back(size);
    m_iterationsUsed = 0;
    m_limitReached = false;
    m_relativeResidual = T(0);
    if (!std::is_sorted(m_boundaries.begin(), m_boundaries.end()))
        return false;
    auto const * matrix = dynamic_cast<ICsrMatrix<T> const *>(&system);
    if (matrix != nullptr && (Detail::csrRowCount(*matrix) != size || !Detail::isRowIndexComplete(*matrix)))
        return false;

    for (int part = 0; part < nRightParts; ++part) {
        CPrgCntSubPhase phase(progress, static_cast<double>(part) / nRightParts, 1.0 / nRightParts, 1, true);
        std::vector<T> solution(static_cast<std::size_t>(size), T(0));
        std::vector<T> rightPart(static_cast<std::size_t>(size), T(0));
        system.SetSingleRightPart(rightPart.data(), *informers[part]);
        if (matrix != nullptr) {
            tf_BinaryDependentTaskManager<T> const tree(*matrix, system.isPositiveDefinite(), m_boundaries,
                                                        rightPart.data(), solution.data(), m_eps,
                                                        m_maxIterations);
            std::size_t const levels = tree.levels().size();
            int iterations = 0;
            for (std::size_t done = 0; done < levels; ++done) {
                CPrgCntSubPhase levelPhase(progress, static_cast<double>(done) / static_cast<double>(levels),
                                           1.0 / static_cast<double>(levels), 1, true);
                int const levelIterations = runLevel<T>(tree.levels()[levels - 1 - done], progress);
                if (levelIterations < 0)
                    return false;
                iterations += levelIterations;
            }
            m_iterationsUsed += iterations;
            if (levels > 0 && tree.levels()[0][0]->isIterationLimitReached()) {
                m_limitReached = true;
                m_relativeResidual = std::max(m_relativeResidual, tree.levels()[0][0]->relativeResidual());
            }
        }
        system.SetSingleSolution(solution.data(), *recievers[part]);
    }
    return true;
}

template <class T>
CLinSysSolverSpaceDecomposer<T>::CLinSysSolverSpaceDecomposer(std::vector<int> const & boundaries, double eps,
                                                              int maxIterations)
    : m_boundaries(boundaries), m_eps(eps), m_maxIterations(maxIterations), m_iterationsUsed(0),
      m_limitReached(false), m_relativeResidual(0)
{}

template <class T>
CLinSysSolverSpaceDecomposer<T>::~CLinSysSolverSpaceDecomposer() = default;

template <class T>
CLinSysSolverSpaceDecomposer<T> * CLinSysSolverSpaceDecomposer<T>::Copy() const
{
    return new CLinSysSolverSpaceDecomposer(*this);
}

template <class T>
bool CLinSysSolverSpaceDecomposer<T>::OnSolveSystem(int nRightParts, IVertexPosInformer<T> const ** informers,
                                                    IEqSysResultReciever<T> ** recievers,
                                                    CProgressCounter * progress)
{
    CLinSysSolverDecomposed<T> core(m_boundaries, m_eps, m_maxIterations);
    bool const solved = core.solveSystem(this->getStorageRef(), nRightParts, informers, recievers, progress);
    m_iterationsUsed = core.getIterationsUsed();
    m_limitReached = core.isIterationLimitReached();
    m_relativeResidual = core.getRelativeResidual();
    return solved;
}

template class CLinSysSolverDecomposed<float>;
template class CLinSysSolverDecomposed<double>;
template class CLinSysSolverSpaceDecomposer<float>;
template class CLinSysSolverSpaceDecomposer<double>;

} // namespace REmath
