// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverDecomposed.h>

#include <QZmath/LinSys/LinSysFailureDetail.h>
#include <QZmath/LinSys/LinSysSolverCoreDetail.h>
#include <QZmath/LinSys/LinSysSolverSparseDss.h>
#include <QZmath/LinSys/LinSysSolverSparseMKL.h>
#include <QZsys/IndexDetail.h>
#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>
#include <QZsys/Threads.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace REmath
{

using VsUt::asIndex;
namespace
{

// The unknowns are cut at the boundaries b0 = 0 < b1 < ... < bk = n. The tree halves the list of boundaries,
// not the unknowns: a node stands for the rows from b[first] to b[last], its children for those up to and
// from the boundary in the middle, and a leaf lies between two neighbours. Nodes are appended after their
// children, so the root is the last.
//
// All nodes of one right part share one solution vector. A level of the tree owns disjoint row ranges of it,
// so its tasks run without a lock, and levels run from the deepest to the root: a merged block finds the
// solutions of its halves in its own rows and iterates from there. A block is the diagonal block of its rows
// alone; what couples it with other blocks is left out, and comes in where they merge. At the root nothing is
// left out.
//
// Invariant: a task writes its own rows only, and reads the matrix, which nobody changes. So the bits of a
// solution do not depend on how many tasks of a level run at once.

// One block of the tree: solves its rows of the common solution. Without a matrix it leaves them as they are
// and has succeeded.
template <class T>
class tf_subsystemTask : public IVescaInvokeProc
{
public:
    tf_subsystemTask(ICsrMatrix<T> const * matrix, bool positiveDefinite, T const * rightPart, T * solution,
                     int firstRow, int endRow, double eps, int maxIterations, bool hasChildren)
        : m_matrix(matrix), m_positiveDefinite(positiveDefinite), m_rightPart(rightPart),
          m_solution(solution), m_firstRow(firstRow), m_endRow(endRow), m_eps(eps),
          m_maxIterations(maxIterations), m_hasChildren(hasChildren)
    {}

    void Invoke() override
    {
        m_iterationsUsed = 0;
        m_succeeded = true;
        // A block without rows is solved, in whichever way it would have been.
        if (m_matrix && m_endRow > m_firstRow) {
            CCSRSquareMatrix<T> ownBlock;
            ICsrMatrix<T> const * block = m_matrix;
            if (m_firstRow != 0 || m_endRow != m_matrix->getMatrixSize()) {
                ownBlock.makeSelfSubMatrix(m_firstRow, m_endRow, *m_matrix);
                block = &ownBlock;
            }
            if (m_hasChildren) {
                CLinSysSolverSparseMKL<T> merged(T(m_eps), m_maxIterations);
                m_iterationsUsed = merged.solveForExplicitMatrix(m_solution, *block, m_rightPart, nullptr);
                m_succeeded = m_iterationsUsed >= 0;
            } else {
                CLinSysSolverSparseDss<T> direct;
                direct.solveForExplicitMatrix(m_solution, *block, m_positiveDefinite, m_rightPart, nullptr);
                m_directFailure = direct.lastFailure();
            }
        }
    }
    bool isSucceeded() const { return m_succeeded; }
    int iterationsUsed() const { return m_iterationsUsed; }
    bool hasChildren() const { return m_hasChildren; }
    LinSysFailure directFailure() const { return m_directFailure; }

private:
    ICsrMatrix<T> const * m_matrix;
    bool m_positiveDefinite;
    T const * m_rightPart;
    T * m_solution;
    int m_firstRow, m_endRow;
    double m_eps;
    int m_maxIterations;
    bool m_succeeded = false;
    int m_iterationsUsed = 0;
    bool m_hasChildren;
    LinSysFailure m_directFailure = LinSysFailure::none;
};

// The tasks of one right part and how they depend on one another.
template <class Task>
class tf_BinaryDependentTaskManager
{
public:
    struct Node
    {
        std::unique_ptr<Task> task;
        Node const * left;
        Node const * right;
    };

    Node const * append(std::unique_ptr<Task> task, Node const * left, Node const * right)
    {
        m_nodes.push_back(std::make_unique<Node>(Node{std::move(task), left, right}));
        return m_nodes.back().get();
    }
    Task const * root() const { return m_nodes.empty() ? nullptr : m_nodes.back()->task.get(); }

    // Level 0 holds the root, each further one the sub-tasks of the one before, left before right.
    std::vector<std::vector<Task *>> levels() const
    {
        std::vector<std::vector<Task *>> result;
        std::vector<Node const *> level;
        if (!m_nodes.empty())
            level.push_back(m_nodes.back().get());
        while (!level.empty()) {
            std::vector<Node const *> next;
            result.emplace_back();
            for (Node const * node : level) {
                result.back().push_back(node->task.get());
                for (Node const * child : {node->left, node->right})
                    if (child)
                        next.push_back(child);
            }
            level = std::move(next);
        }
        return result;
    }

private:
    std::vector<std::unique_ptr<Node>> m_nodes;
};

// What the tasks of one right part share.
template <class T>
struct RightPartContext
{
    using Task = tf_subsystemTask<T>;
    using Tasks = tf_BinaryDependentTaskManager<Task>;

    ICsrMatrix<T> const * matrix;
    bool positiveDefinite;
    std::vector<int> const & boundaries;
    std::vector<T> solution, rightPart;
    Tasks tasks;
    double eps;
    int maxIterations;

    // The tree over the boundaries at positions `first` to `last`; null when there is no block in between.
    typename Tasks::Node const * buildTree(std::size_t first, std::size_t last)
    {
        if (first == last)
            return nullptr;
        std::size_t const middle = first + (last - first) / 2;
        int const firstRow = boundaries[first];
        bool const hasChildren = middle != first && middle != last;
        auto task = std::make_unique<Task>(matrix, positiveDefinite, rightPart.data() + firstRow,
                                           solution.data() + firstRow, firstRow, boundaries[last], eps,
                                           maxIterations, hasChildren);
        typename Tasks::Node const * left = nullptr;
        typename Tasks::Node const * right = nullptr;
        if (hasChildren) {
            left = buildTree(first, middle);
            right = buildTree(middle, last);
        }
        return tasks.append(std::move(task), left, right);
    }
};

// Gives the sum of the iterations, -1 when a task failed.
template <class Task>
int runLevel(std::vector<Task *> const & level, CProgressCounter * progress)
{
    std::size_t const threads = asIndex(CVescaThreadingTasksHelper::getNumOfPhisicalThread());
    int iterations = 0;
    std::vector<IVescaInvokeProc *> batch;
    for (std::size_t begin = 0; begin < level.size(); begin += batch.size()) {
        batch.clear();
        for (std::size_t number = begin; number < std::min(begin + threads, level.size()); ++number) {
            if (progress)
                progress->SetPosFloat(static_cast<double>(number) / static_cast<double>(level.size()));
            batch.push_back(level[number]);
        }
        if (threads < 2)
            batch.front()->Invoke();
        else
            CVescaThreadingTasksHelper::performInParallel(batch.data(), static_cast<int>(batch.size()),
                                                          nullptr);
        for (std::size_t number = begin; number < begin + batch.size(); ++number) {
            if (!level[number]->isSucceeded())
                return -1;
            iterations += level[number]->iterationsUsed();
        }
    }
    if (progress)
        progress->SetPosFloat(1.0);
    return iterations;
}

} // namespace

template <class T>
CLinSysSolverDecomposed<T>::CLinSysSolverDecomposed(std::vector<int> const & boundaries, double eps,
                                                    int maxIterations)
    : m_boundaries(boundaries), m_eps(eps), m_maxIterations(maxIterations)
{}

template <class T>
bool CLinSysSolverDecomposed<T>::onSolveSystem(ILinearSystemReadOnly<T> const & system, int nRightParts,
                                               IVertexPosInformer<T> const ** informers,
                                               IEqSysResultReciever<T> ** recievers,
                                               CProgressCounter * progress)
{
    if (m_boundaries.empty() || m_boundaries.front() != 0)
        m_boundaries.insert(m_boundaries.begin(), 0);
    int const size = system.GetEquationsNumber();
    if (m_boundaries.back() != size)
        m_boundaries.push_back(size);
    this->m_report = {};
    // Ascending from 0 to the size, none can lie outside.
    if (!std::is_sorted(m_boundaries.begin(), m_boundaries.end())) {
        this->setFailure(Detail::unlessSpoiled(system, LinSysFailure::malformed));
        return false;
    }
    ICsrMatrix<T> const * const matrix = Detail::asCsr(system);
    if (matrix && size > 0 && (matrix->getMatrixSize() != size || !Detail::isMatrixUsable(*matrix))) {
        this->setFailure(Detail::whyUnusable(system, *matrix));
        return false;
    }

    for (int part = 0; part < nRightParts; ++part) {
        CPrgCntSubPhase const phase(progress, static_cast<double>(part) / nRightParts, 1.0 / nRightParts, 1,
                                    true);
        std::size_t const rows = asIndex(size);
        RightPartContext<T> context{matrix,
                                    system.isPositiveDefinite(),
                                    m_boundaries,
                                    std::vector<T>(rows),
                                    std::vector<T>(rows),
                                    {},
                                    m_eps,
                                    m_maxIterations};
        system.SetSingleRightPart(context.rightPart.data(), *informers[part]);
        context.buildTree(0, m_boundaries.size() - 1);
        auto const levels = context.tasks.levels();
        int iterations = 0;
        for (std::size_t finished = 0; finished < levels.size(); ++finished) {
            CPrgCntSubPhase const levelPhase(
                progress, static_cast<double>(finished) / static_cast<double>(levels.size()),
                1.0 / static_cast<double>(levels.size()), 1, true);
            int const levelIterations = runLevel(levels[levels.size() - 1 - finished], progress);
            if (levelIterations < 0) {
                this->setFailure(LinSysFailure::notConverged);
                return false;
            }
            iterations += levelIterations;
        }
        this->m_report.iterationsUsed += iterations;
        if (auto const * root = context.tasks.root(); matrix && root && root->hasChildren() &&
                                                      m_maxIterations > 0 &&
                                                      root->iterationsUsed() == m_maxIterations)
            this->m_report.noteStopped(
                Detail::relativeResidual(*matrix, context.solution.data(), context.rightPart.data()),
                static_cast<T>(m_eps));
        // What a direct block lacks is made up where it merges; nothing comes after the root.
        if (auto const * root = context.tasks.root(); root && root->directFailure() != LinSysFailure::none)
            this->setFailure(root->directFailure());
        else if (this->m_report.isLimitReached ||
                 !Detail::areFinite(context.solution.data(), context.solution.size()))
            this->setFailure(LinSysFailure::notConverged);
        system.SetSingleSolution(context.solution.data(), *recievers[part]);
    }
    return true;
}

template <class T>
CLinSysSolverSpaceDecomposer<T>::CLinSysSolverSpaceDecomposer(std::vector<int> const & boundaries, double eps,
                                                              int maxIterations)
    : m_boundaries(boundaries), m_eps(eps), m_maxIterations(maxIterations)
{}

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
    bool const succeeded =
        core.solveSystem(this->getStorageRef(), nRightParts, informers, recievers, progress);
    this->m_report = core.getIterationReport();
    this->setFailure(core.lastFailure());
    return succeeded;
}

template class CLinSysSolverDecomposed<float>;
template class CLinSysSolverDecomposed<double>;
template class CLinSysSolverCompose<float, CCSRSstorage<float>, CLinSysSolverDecomposed<float>>;
template class CLinSysSolverCompose<double, CCSRSstorage<double>, CLinSysSolverDecomposed<double>>;
template class CLinSysSolverSpaceDecomposer<float>;
template class CLinSysSolverSpaceDecomposer<double>;

} // namespace REmath
