// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/ParallelTasks.h>

#include <deque>
#include <exception>
#include <functional>
#include <string>
#include <utility>
#include <vector>

/// A task made from a function.
class FunctionTask : public IVescaInvokeProc
{
public:
    explicit FunctionTask(std::function<void()> action) : m_action(std::move(action)) {}
    void Invoke() override { m_action(); }

private:
    std::function<void()> m_action;
};

inline void perform(std::deque<FunctionTask> & tasks, IVescaThreadOnTimerObserver * observer = nullptr)
{
    std::vector<IVescaInvokeProc *> pointers;
    for (FunctionTask & task : tasks)
        pointers.push_back(&task);
    CVescaThreadingTasksHelper::performInParallel(pointers.data(), static_cast<int>(pointers.size()),
                                                  observer);
}

/// The text of the exception that `action` throws, empty for none.
inline std::string thrownBy(std::function<void()> const & action)
{
    try {
        action();
    } catch (std::exception const & thrown) {
        return thrown.what();
    }
    return "";
}
