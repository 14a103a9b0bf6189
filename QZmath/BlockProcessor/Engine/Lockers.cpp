// SPDX-License-Identifier: Apache-2.0
#include <QZmath/BlockProcessor/Engine/Lockers.h>

#include <QZsys/IndexDetail.h>

namespace BlockProc
{

void ModelLock::reset(int workers)
{
    m_readMutexes.clear();
    m_readMutexes.reserve(VsUt::asIndex(workers));
}

IVescaMutex * ModelLock::addReader()
{
    m_readMutexes.push_back(std::make_unique<IVescaMutexPtr>(threadingFactory().makeMutex()));
    return m_readMutexes.back()->get();
}

void ModelLock::lockAll(VsUt::IDebugLog * log, int workerId)
{
    DebugThreadMessage(log, workerId, "Going to lock %d mutexes", static_cast<int>(m_readMutexes.size()));
    std::size_t lockedCount = 0;
    try {
        for (std::unique_ptr<IVescaMutexPtr> const & mutex : m_readMutexes) {
            void const * const address = mutex->get();
            DebugThreadMessage(log, workerId, "Locking mutex number %d", static_cast<int>(lockedCount));
            DebugThreadMessage(log, workerId, "Locking mutex %p", address);
            (*mutex)->lock();
            ++lockedCount;
            DebugThreadMessage(log, workerId, "Mutex %p locked", address);
        }
    } catch (...) {
        for (std::size_t i = 0; i < lockedCount; ++i)
            (*m_readMutexes[i])->unlock();
        throw;
    }
}

void ModelLock::unlockAll(VsUt::IDebugLog * log, int workerId) noexcept
{
    traceQuietly(log, workerId, "Going to unlock %d mutexes", static_cast<int>(m_readMutexes.size()));
    traceQuietly(log, workerId, "Going to unlock all mutexes");
    int number = 0;
    for (std::unique_ptr<IVescaMutexPtr> const & mutex : m_readMutexes) {
        traceQuietly(log, workerId, "Unlocking mutex number %d", number++);
        traceQuietly(log, workerId, "Unlocking mutex %p", static_cast<void const *>(mutex->get()));
        (*mutex)->unlock();
    }
}

AllMutexesLocker::AllMutexesLocker(ModelLock & lock, VsUt::IDebugLog * log, int workerId)
    : m_lock(lock), m_log(log), m_workerId(workerId)
{
    m_lock.lockAll(m_log, m_workerId);
    try {
        DebugThreadMessage(m_log, m_workerId, "All mutexes locked by locker %p", address());
    } catch (...) {
        m_lock.unlockAll(m_log, m_workerId);
        throw;
    }
}

AllMutexesLocker::~AllMutexesLocker()
{
    traceQuietly(m_log, m_workerId, "Destructor of locker %p entered", address());
    traceQuietly(m_log, m_workerId, "Unlock of locker %p entered", address());
    m_lock.unlockAll(m_log, m_workerId);
    traceQuietly(m_log, m_workerId, "All mutexes unlocked by locker %p", address());
}

} // namespace BlockProc
