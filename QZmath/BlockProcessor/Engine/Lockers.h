// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/BlockProcessor/ThreadTracing.h>

#include <QZsys/Threads.h>

#include <memory>
#include <vector>

namespace BlockProc
{

inline IVescaThreadingFactory & threadingFactory()
{
    return CVescaSingletonT<IVescaThreadingFactory>::Instance();
}

/// Traces in places that must not throw: destructors and the handling of exceptions. A line that the log
/// refuses is lost.
template <class... Argument>
void traceQuietly(VsUt::IDebugLog * log, int workerId, char const * text, Argument... argument) noexcept
{
    try {
        DebugThreadMessage(log, workerId, text, argument...);
    } catch (...) {
    }
}

template <class... Argument>
void traceManagerQuietly(VsUt::IDebugLog * log, char const * text, Argument... argument) noexcept
{
    try {
        DebugThreadMgrMessage(log, text, argument...);
    } catch (...) {
    }
}

/// Holds one mutex (may be null) and traces that.
class TF_SingleMutexLocker
{
public:
    TF_SingleMutexLocker(IVescaMutex * mutex, VsUt::IDebugLog * log, int workerId)
        : m_mutex(mutex), m_log(log), m_workerId(workerId)
    {
        if (!m_mutex)
            return;
        void const * const address = m_mutex;
        DebugThreadMessage(m_log, m_workerId, "Locking single mutex %p.", address);
        m_mutex->lock();
        m_locked = true;
        try {
            DebugThreadMessage(m_log, m_workerId, "Single mutex %p locked.", address);
        } catch (...) {
            m_mutex->unlock();
            throw;
        }
    }
    ~TF_SingleMutexLocker() { unlock(); }
    TF_SingleMutexLocker(TF_SingleMutexLocker const &) = delete;
    TF_SingleMutexLocker & operator=(TF_SingleMutexLocker const &) = delete;

    /// Unlocks before the end of the scope; a second time does nothing.
    void unlock() noexcept
    {
        if (!m_locked)
            return;
        traceQuietly(m_log, m_workerId, "Unlocking single mutex %p", static_cast<void const *>(m_mutex));
        m_locked = false;
        m_mutex->unlock();
    }

private:
    bool m_locked = false;
    IVescaMutex * m_mutex;
    VsUt::IDebugLog * m_log;
    int m_workerId;
};

/// The lock of the model: a mutex for each worker. Who reads holds a worker's own one, who writes holds all
/// of them, always taken in the same order. So readers do not wait for each other, and a writer is alone.
class ModelLock
{
public:
    /// Forgets all mutexes and makes room for `workers` of them.
    void reset(int workers);
    /// One mutex more, owned by this. Not while the lock is in use.
    IVescaMutex * addReader();

    /// Takes the mutexes of all readers and traces that. The caller holds none of them.
    void lockAll(VsUt::IDebugLog * log, int workerId);
    void unlockAll(VsUt::IDebugLog * log, int workerId) noexcept;

private:
    std::vector<std::unique_ptr<IVescaMutexPtr>> m_readMutexes;
};

/// Holds the model for writing and traces that.
class AllMutexesLocker
{
public:
    AllMutexesLocker(ModelLock & lock, VsUt::IDebugLog * log, int workerId);
    ~AllMutexesLocker();
    AllMutexesLocker(AllMutexesLocker const &) = delete;
    AllMutexesLocker & operator=(AllMutexesLocker const &) = delete;

private:
    void const * address() const { return this; }

    ModelLock & m_lock;
    VsUt::IDebugLog * m_log;
    int m_workerId;
};

} // namespace BlockProc
