// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/Export.h>

#include <memory>

/// A task: something that can be called once by whoever was given it.
class QZSYS_API IVescaInvokeProc
{
public:
    virtual ~IVescaInvokeProc();
    virtual void Invoke() = 0;
};

/// Receives an event each time that a time-out has passed while somebody waits, see
/// `CVescaThreadingTasksHelper::performInParallel` and `IVescaTimer`.
class QZSYS_API IVescaThreadOnTimerObserver
{
public:
    virtual ~IVescaThreadOnTimerObserver();
    /// The time between two events, in milliseconds.
    virtual int getMillisecondsTimeOut();
    virtual void processTimerEvent();

protected:
    virtual int onGetMillisecondsTimeOut() = 0;
    virtual void onProcessTimerEvent() = 0;
};

/// A thread that runs one task. The object is used by one thread at a time, apart from `wait`.
class QZSYS_API IVescaThread
{
public:
    /// Waits for the end of the task. A task that deletes its own thread object is left to run to its end.
    virtual ~IVescaThread();
    /// The task of the next `start`; not owned, it must live until it has ended. Null means no task.
    virtual void setTask(IVescaInvokeProc * task) = 0;
    /// Runs the task on a thread of its own and returns at once. Does nothing without a task or while one is
    /// running; a task that has ended can be started again. An exception that leaves the task ends it
    /// silently: a task that has an error to report keeps it. Throws `CVescaException` when the machine gives
    /// no more threads.
    virtual void start() = 0;
    /// True as soon as no task is running, false when `milliseconds` have passed before. 0 polls, a negative
    /// time waits for ever. What the task has written is visible after true.
    virtual bool wait(int milliseconds) = 0;
};

/// A flag to wait for, which lets exactly one waiter through each time that it is set. Thread-safe.
class QZSYS_API IVescaBlockingEvent
{
public:
    virtual ~IVescaBlockingEvent();
    /// Sets the event. Setting it again before anybody consumed it changes nothing.
    virtual void set() = 0;
    /// True when the event is or becomes set within `milliseconds`, and consumes it. 0 polls, a negative time
    /// waits for ever.
    virtual bool wait(int milliseconds) = 0;
};

/// Mutual exclusion, not recursive: a thread that locks twice blocks for ever.
class QZSYS_API IVescaMutex
{
public:
    virtual ~IVescaMutex();
    virtual void lock() = 0;
    /// Only by the thread that holds the lock.
    virtual void unlock() = 0;
};

/// Owns a mutex, or none.
class QZSYS_API IVescaMutexPtr
{
public:
    explicit IVescaMutexPtr(IVescaMutex * mutex = nullptr) : m_mutex(mutex) {}

    IVescaMutex * get() const { return m_mutex.get(); }
    IVescaMutex * operator->() const { return m_mutex.get(); }
    IVescaMutex & operator*() const { return *m_mutex; }
    explicit operator bool() const { return m_mutex != nullptr; }

private:
    std::unique_ptr<IVescaMutex> m_mutex;
};

/// Holds a mutex (may be null) locked for its own lifetime.
class QZSYS_API CVescaMutexLock
{
public:
    explicit CVescaMutexLock(IVescaMutex * mutex) : m_mutex(mutex)
    {
        if (m_mutex)
            m_mutex->lock();
    }
    explicit CVescaMutexLock(IVescaMutexPtr const & mutex) : CVescaMutexLock(mutex.get()) {}
    ~CVescaMutexLock()
    {
        if (m_mutex)
            m_mutex->unlock();
    }
    CVescaMutexLock(CVescaMutexLock const &) = delete;
    CVescaMutexLock & operator=(CVescaMutexLock const &) = delete;

private:
    IVescaMutex * m_mutex;
};

/// Answers whether an observer's event is due on this thread; never calls the event by itself. It belongs to
/// one owner thread, at first the one that made it. Thread-safe.
class QZSYS_API IVescaTimer
{
public:
    virtual ~IVescaTimer();
    /// True on the owner thread when the observer's time-out has passed since the period began. Foreign
    /// threads get false without a look at the clock.
    virtual bool mayActNow() const = 0;
    /// Whether the calling thread is the owner.
    virtual bool isOwnerThread() const = 0;
    /// Makes the calling thread the owner and begins a new period.
    virtual void restart() = 0;
};

/// Lets the calling thread sleep.
class QZSYS_API IVescaSleeper
{
public:
    virtual ~IVescaSleeper();
    /// Returns when `milliseconds` have passed; at once for 0 and negative ones.
    virtual void sleep(int milliseconds) = 0;
};

/// Makes the objects of this header. They belong to the caller, who deletes them. Thread-safe.
class QZSYS_API IVescaThreadingFactory
{
public:
    virtual ~IVescaThreadingFactory();
    virtual IVescaThread * makeThread() = 0;
    virtual IVescaBlockingEvent * makeBlockingEvent() = 0;
    virtual IVescaMutex * makeMutex() = 0;
    /// The observer is asked for its time-out only; it is not owned and may be null, which is a time-out of
    /// 0.
    virtual IVescaTimer * makeTimer(IVescaThreadOnTimerObserver * observer) = 0;
    virtual IVescaSleeper * makeSleeper() = 0;
};

/// The one object of a type in the process, made on first use and never destroyed, so that it can be used
/// while the process ends. Exists for `IVescaThreadingFactory`.
template <class T>
class CVescaSingletonT
{
public:
    static T & Instance();
};

template <>
QZSYS_API IVescaThreadingFactory & CVescaSingletonT<IVescaThreadingFactory>::Instance();
