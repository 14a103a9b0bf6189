// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/BlockProcessor/BlockProcessor.h>

#include <QZsys/Threads.h>

#include <exception>
#include <memory>
#include <vector>

namespace BlockProc
{

/// The living workers of a pass with their threads. Used by the manager only, which is the thread of
/// `CBlockProcessor::Run`.
class CBlockProcessor::Crew
{
public:
    explicit Crew(CBlockProcessor & processor);
    ~Crew();
    Crew(Crew const &) = delete;
    Crew & operator=(Crew const &) = delete;

    bool isEmpty() const;

    /// Makes all workers, and with them all read mutexes: a writer has to take those of all workers, so no
    /// thread may start before.
    void hire(int count);
    void start();

    /// Lets all workers finish the blocks that they have in work, and dismisses them.
    /// @return what a hook threw meanwhile; all workers are gone nevertheless
    std::exception_ptr stop() noexcept;

    /// Dismisses the first worker whose thread has ended.
    bool releaseOne();
    void wakeUpIdles();

    /// Sleeps until there may be something to do. Between a worker's last notice and the end of its thread
    /// there is no further notice to wait for, so then the thread itself is waited for.
    void awaitNews() const;

private:
    class TF_InvokeWorker;
    struct Member;

    CBlockProcessor & m_processor;
    std::vector<Member> m_members;
};

} // namespace BlockProc
