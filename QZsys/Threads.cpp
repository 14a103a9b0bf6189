// SPDX-License-Identifier: Apache-2.0
#include <QZsys/Threads.h>

#include <QZsys/Exceptions.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

IVescaInvokeProc::~IVescaInvokeProc() = default;

IVescaThreadOnTimerObserver::~IVescaThreadOnTimerObserver() = default;
int IVescaThreadOnTimerObserver::getMillisecondsTimeOut() { return onGetMillisecondsTimeOut(); }
void IVescaThreadOnTimerObserver::processTimerEvent() { onProcessTimerEvent(); }

IVescaThread::~IVescaThread() = default;
IVescaBlockingEvent::~IVescaBlockingEvent() = default;
IVescaMutex::~IVescaMutex() = default;
IVescaTimer::~IVescaTimer() = default;
IVescaSleeper::~IVescaSleeper() = default;
IVescaThreadingFactory::~IVescaThreadingFactory() = default;

namespace
{

using Clock = std::chrono::steady_clock;

// Waits until `condition` holds: for ever with a negative time, otherwise at most that long.
template <class Condition>
bool waitFor(std::condition_variable & changed, std::unique_lock<std::mutex> & lock, int milliseconds,
             Condition condition)
{
    if (milliseconds < 0) {
        changed.wait(lock, condition);
        return true;
    }
    if (milliseconds == 0)
        return condition();
    return changed.wait_for(lock, std::chrono::milliseconds(milliseconds), condition);
}

class Thread final : public IVescaThread
{
public:
    ~Thread() override { release(); }

    void setTask(IVescaInvokeProc * task) override { m_task = task; }

    void start() override
    {
        if (!m_task || !wait(0))
            return;
        release();
        setRunning(*m_state, true);
        try {
            m_thread = std::thread([state = m_state, task = m_task] {
                try {
                    task->Invoke();
                } catch (...) { // documented: the task keeps what it has to report
                }
                setRunning(*state, false);
            });
        } catch (std::system_error const &) {
            setRunning(*m_state, false);
            throw CVescaException("Cannot start a thread");
        } catch (...) {
            setRunning(*m_state, false);
            throw;
        }
    }

    bool wait(int milliseconds) override
    {
        std::unique_lock<std::mutex> lock(m_state->mutex);
        return waitFor(m_state->ended, lock, milliseconds, [this] { return !m_state->running; });
    }

private:
    // Shared with the thread, which may outlive this object when its own task deletes it.
    struct State
    {
        std::mutex mutex;
        std::condition_variable ended;
        bool running = false;
    };

    static void setRunning(State & state, bool running)
    {
        std::lock_guard<std::mutex> const lock(state.mutex);
        state.running = running;
        state.ended.notify_all();
    }

    void release()
    {
        if (!m_thread.joinable())
            return;
        if (m_thread.get_id() == std::this_thread::get_id())
            m_thread.detach();
        else
            m_thread.join();
    }

    std::shared_ptr<State> m_state = std::make_shared<State>();
    std::thread m_thread;
    IVescaInvokeProc * m_task = nullptr;
};

class BlockingEvent final : public IVescaBlockingEvent
{
public:
    void set() override
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_isSet = true;
        m_changed.notify_one();
    }

    bool wait(int milliseconds) override
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!waitFor(m_changed, lock, milliseconds, [this] { return m_isSet; }))
            return false;
        m_isSet = false;
        return true;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isSet = false;
};

class Mutex final : public IVescaMutex
{
public:
    void lock() override { m_mutex.lock(); }
    void unlock() override { m_mutex.unlock(); }

private:
    std::mutex m_mutex;
};

class Timer final : public IVescaTimer
{
public:
    explicit Timer(IVescaThreadOnTimerObserver * observer) : m_observer(observer) { restart(); }

    bool isOwnerThread() const override
    {
        return m_owner.load(std::memory_order_relaxed) == std::this_thread::get_id();
    }

    bool mayActNow() const override
    {
        if (!isOwnerThread())
            return false;
        Clock::duration const passed =
            Clock::now().time_since_epoch() - Clock::duration(m_periodBegin.load(std::memory_order_relaxed));
        return passed >= std::chrono::milliseconds(m_observer ? m_observer->getMillisecondsTimeOut() : 0);
    }

    void restart() override
    {
        m_owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
        m_periodBegin.store(Clock::now().time_since_epoch().count(), std::memory_order_relaxed);
    }

private:
    IVescaThreadOnTimerObserver * m_observer;
    std::atomic<std::thread::id> m_owner;
    std::atomic<Clock::rep> m_periodBegin;
};

class Sleeper final : public IVescaSleeper
{
public:
    void sleep(int milliseconds) override
    {
        if (milliseconds > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    }
};

class ThreadingFactory final : public IVescaThreadingFactory
{
public:
    IVescaThread * makeThread() override { return new Thread; }
    IVescaBlockingEvent * makeBlockingEvent() override { return new BlockingEvent; }
    IVescaMutex * makeMutex() override { return new Mutex; }
    IVescaTimer * makeTimer(IVescaThreadOnTimerObserver * observer) override { return new Timer(observer); }
    IVescaSleeper * makeSleeper() override { return new Sleeper; }
};

} // namespace

template <>
IVescaThreadingFactory & CVescaSingletonT<IVescaThreadingFactory>::Instance()
{
    static IVescaThreadingFactory & factory = *new ThreadingFactory;
    return factory;
}
