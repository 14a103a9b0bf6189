// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/LinSysSolverDecomposed.h>

#include <QZmath/LinSys/LinSysSolverCoreDetail.h>
#include <QZmath/LinSys/LinSysSolverSparseDss.h>
#include <QZmath/LinSys/LinSysSolverSparseMKL.h>
#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>
#include <QZsys/Threads.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace REmath
{
namespace
{

/// One block of the tree: solves its rows of the common solution.
template <class T, class System>
class tf_subsystemTask : public IVescaInvokeProc
{
public:
    tf_subsystemTask(System const * system, T const * rightPart, T * solution, int firstRow, int endRow,
                     double eps, int maxIterations, bool hasChildren)
        : m_system(system), m_rightPart(rightPart), m_solution(solution), m_firstRow(firstRow),
          m_endRow(endRow), m_eps(eps), m_maxIterations(maxIterations), m_hasChildren(hasChildren)
    {}

    void Invoke() override
    {
        m_iterationsUsed = 0;
        m_succeeded = true;
        // A block without rows is solved, in whichever way it would have been.
        if (auto const * matrix = dynamic_cast<ICsrMatrix<T> const *>(m_system);
            matrix && m_endRow > m_firstRow) {
            CCSRSquareMatrix<T> ownBlock;
            ICsrMatrix<T> const * block = matrix;
            if (m_firstRow != 0 || m_endRow != matrix->getMatrixSize()) {
                ownBlock.makeSelfSubMatrix(m_firstRow, m_endRow, *matrix);
                block = &ownBlock;
            }
            if (m_hasChildren) {
                CLinSysSolverSparseMKL<T> merged(T(m_eps), m_maxIterations);
                m_iterationsUsed = merged.solveForExplicitMatrix(m_solution, *block, m_rightPart, nullptr);
                m_succeeded = m_iterationsUsed >= 0;
            } else {
                CLinSysSolverSparseDss<T> direct;
                direct.solveForExplicitMatrix(m_solution, *block, m_system->isPositiveDefinite(), m_rightPart,
                                              nullptr);
            }
        }
        m_done = true;
    }
    virtual bool isSucceeded() const { return m_succeeded; }
    virtual bool isDone() const { return m_done; }
    virtual int iterationsUsed() const { return m_iterationsUsed; }
    bool hasChildren() const { return m_hasChildren; }

private:
    System const * m_system;
    T const * m_rightPart;
    T * m_solution;
    int m_firstRow, m_endRow;
    double m_eps;
    int m_maxIterations;
    bool m_succeeded = false;
    bool m_done = false;
    int m_iterationsUsed = 0;
    bool m_hasChildren;
};

/// The tasks of one right part and how they depend on one another.
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

    virtual ~tf_BinaryDependentTaskManager() = default;

    Node const * append(std::unique_ptr<Task> task, Node const * left, Node const * right)
    {
        m_nodes.push_back(std::make_unique<Node>(Node{std::move(task), left, right}));
        return m_nodes.back().get();
    }
    Task const * root() const { return m_nodes.empty() ? nullptr : m_nodes.back()->task.get(); }

    /// Level 0 holds the root, each further one the sub-tasks of the one before, left before right.
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

/// What the tasks of one right part share.
template <class T>
struct RightPartContext
{
    using Task = tf_subsystemTask<T, ILinearSystemReadOnly<T>>;
    using Tasks = tf_BinaryDependentTaskManager<Task>;

    ILinearSystemReadOnly<T> const & system;
    IEqSysResultReciever<T> & reciever;
    std::vector<int> const & boundaries;
    std::vector<T> solution, rightPart;
    Tasks tasks;
    double eps;
    int maxIterations;

    /// The tree over the boundaries at positions `first` to `last`; null when there is no block in between.
    typename Tasks::Node const * buildTree(std::size_t first, std::size_t last)
    {
        if (first == last)
            return nullptr;
        std::size_t const middle = first + (last - first) / 2;
        int const firstRow = boundaries[first];
        bool const hasChildren = middle != first && middle != last;
        auto task = std::make_unique<Task>(&system, rightPart.data() + firstRow, solution.data() + firstRow,
                                           firstRow, boundaries[last], eps, maxIterations, hasChildren);
        typename Tasks::Node const * left = nullptr;
        typename Tasks::Node const * right = nullptr;
        if (hasChildren) {
            left = buildTree(first, middle);
            right = buildTree(middle, last);
        }
        return tasks.append(std::move(task), left, right);
    }
};

/// Gives the sum of the iterations, -1 when a task failed.
template <class Task>
int runLevel(std::vector<Task *> const & level, CProgressCounter * progress)
{
    std::size_t const threads = std::size_t(CVescaThreadingTasksHelper::getNumOfPhisicalThread());
    int iterations = 0;
    std::vector<IVescaInvokeProc *> batch;
    for (std::size_t begin = 0; begin < level.size(); begin += batch.size()) {
        batch.clear();
        for (std::size_t number = begin; number < std::min(begin + threads, level.size()); ++number) {
            if (progress)
                progress->SetPosFloat(double(number) / double(level.size()));
            batch.push_back(level[number]);
        }
        if (threads < 2)
            batch.front()->Invoke();
        else
            CVescaThreadingTasksHelper::performInParallel(batch.data(), int(batch.size()), nullptr);
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
CLinSysSolverDecomposed<T>::CLinSysSolverDecomposed(CLinSysSolverDecomposed const &) = default;
template <class T>
CLinSysSolverDecomposed<T> & CLinSysSolverDecomposed<T>::operator=(CLinSysSolverDecomposed const &) = default;
template <class T>
CLinSysSolverDecomposed<T>::~CLinSysSolverDecomposed() = default;

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
    m_iterationsUsed = 0;
    m_iterationLimitReached = false;
    m_relativeResidual = 0;
    // Ascending from 0 to the size, none can lie outside.
    if (!std::is_sorted(m_boundaries.begin(), m_boundaries.end()))
        return false;
    auto const * matrix = dynamic_cast<ICsrMatrix<T> const *>(&system);
    if (matrix && size > 0 && (matrix->getMatrixSize() != size || !Detail::isMatrixUsable(*matrix)))
        return false;

    for (int part = 0; part < nRightParts; ++part) {
        CPrgCntSubPhase const phase(progress, double(part) / nRightParts, 1.0 / nRightParts, 1, true);
        std::size_t const rows = std::size_t(size);
        RightPartContext<T> context{
            system, *recievers[part], m_boundaries, std::vector<T>(rows), std::vector<T>(rows), {},
            m_eps,  m_maxIterations};
        system.SetSingleRightPart(context.rightPart.data(), *informers[part]);
        context.buildTree(0, m_boundaries.size() - 1);
        auto const levels = context.tasks.levels();
        int iterations = 0;
        for (std::size_t finished = 0; finished < levels.size(); ++finished) {
            CPrgCntSubPhase const levelPhase(progress, double(finished) / double(levels.size()),
                                             1.0 / double(levels.size()), 1, true);
            int const levelIterations = runLevel(levels[levels.size() - 1 - finished], progress);
            if (levelIterations < 0)
                return false;
            iterations += levelIterations;
        }
        m_iterationsUsed += iterations;
        if (auto const * root = context.tasks.root(); matrix && root && root->hasChildren() &&
                                                      m_maxIterations > 0 &&
                                                      root->iterationsUsed() == m_maxIterations) {
            T const residual =
                Detail::relativeResidual(*matrix, context.solution.data(), context.rightPart.data());
            if (!(residual <= T(m_eps))) {
                m_iterationLimitReached = true;
                if (std::isnan(residual) || residual > m_relativeResidual)
                    m_relativeResidual = residual;
            }
        }
        system.SetSingleSolution(context.solution.data(), context.reciever);
    }
    return true;
}

template <class T>
CLinSysSolverSpaceDecomposer<T>::CLinSysSolverSpaceDecomposer(std::vector<int> const & boundaries, double eps,
                                                              int maxIterations)
    : m_boundaries(boundaries), m_eps(eps), m_maxIterations(maxIterations)
{}

template <class T>
CLinSysSolverSpaceDecomposer<T>::CLinSysSolverSpaceDecomposer(CLinSysSolverSpaceDecomposer const &) = default;
template <class T>
CLinSysSolverSpaceDecomposer<T> &
CLinSysSolverSpaceDecomposer<T>::operator=(CLinSysSolverSpaceDecomposer const &) = default;
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
    bool const succeeded =
        core.solveSystem(this->getStorageRef(), nRightParts, informers, recievers, progress);
    m_iterationsUsed = core.getIterationsUsed();
    m_iterationLimitReached = core.isIterationLimitReached();
    m_relativeResidual = core.getRelativeResidual();
    return succeeded;
}

template class CLinSysSolverDecomposed<float>;
template class CLinSysSolverDecomposed<double>;
template class CLinSysSolverCompose<float, CCSRSstorage<float>, CLinSysSolverDecomposed<float>>;
template class CLinSysSolverCompose<double, CCSRSstorage<double>, CLinSysSolverDecomposed<double>>;
template class CLinSysSolverSpaceDecomposer<float>;
template class CLinSysSolverSpaceDecomposer<double>;

} // namespace REmath
