// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/Export.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <vector>

class CPrgCntBlocksTreaded;
class CPrgCntSubPhase;
namespace VsPCnt
{
class CMultiPhaseManager;
}

/// How far a long operation has come, and the way to stop it.
///
/// The operation narrows the counter down with nested sub-phases (`CPrgCntSubPhase`) and reports positions of
/// 0 to 1 inside the innermost one; the counter maps them to one overall position of 0 to 1 and hands it to
/// the hook `onPosition`, which a derived class overrides to show it.
///
/// *Progress operations* are `SetPosFloat` and the opening of a sub-phase or phase. They may throw: what a
/// hook throws, and `CUserIntrException` after `interrupt()`. Closing a sub-phase or phase moves the position
/// to its end and never throws. What the hook throws at that moment is kept and thrown by the next progress
/// operation; of several such exceptions the first is kept, and none is kept while another exception is
/// already unwinding the operation.
///
/// Within one run the position never falls. A run ends, and the next begins, when no sub-phase is open and
/// either a progress operation asks for position 0 or the position has reached 1. So a counter serves one run
/// after another without any reset, also after a run that was interrupted.
///
/// Threads: the counter belongs to the one thread that runs the operation, except `interrupt()` and
/// `getPosFloat()`, which are lock-free and may be called from anywhere. Hooks run on the operation's thread
/// and must not operate the same counter, apart from those two.
///
/// Cost: a progress operation takes a few nanoseconds and allocates nothing; there is no throttling, so a
/// hook that draws has to limit itself.
class QZSYS_API CProgressCounter
{
public:
    CProgressCounter() = default;
    /// Sub-phases that are still open are detached: closing them does nothing.
    virtual ~CProgressCounter();
    CProgressCounter(CProgressCounter const &) = delete;
    CProgressCounter & operator=(CProgressCounter const &) = delete;

    /// Moves to `position` inside the innermost open sub-phase. It is clamped to 0..1; NaN counts as 0.
    void SetPosFloat(double position);

    /// The overall position, 0..1. From any thread.
    double getPosFloat() const noexcept { return m_position.load(std::memory_order_relaxed); }

    /// Makes the next progress operation throw `CUserIntrException("user interruption")`, once; after that
    /// the counter is usable again. Several requests before that operation count as one. From any thread and
    /// from a signal handler. An exception kept from a closing hook is dropped when the interruption is
    /// thrown.
    void interrupt() noexcept { m_interruptRequested.store(true, std::memory_order_relaxed); }

protected:
    /// Called after every progress operation and every closing with the overall position, also if it is
    /// unchanged.
    virtual void onPosition(double overall);
    /// Called when a phase starts whose manager was told to show names, before the position moves there.
    virtual void onPhaseName(std::string const & name);

private:
    friend class CPrgCntBlocksTreaded;
    friend class CPrgCntSubPhase;
    friend class VsPCnt::CMultiPhaseManager;

    struct Range
    {
        double begin, end;
    };

    Range innermostRange() const noexcept;
    void throwPending();
    void advanceTo(double overall);
    void close(CPrgCntSubPhase & subPhase) noexcept;
    void forgetRun() noexcept;

    std::atomic<double> m_position{0.0};
    std::atomic<bool> m_interruptRequested{false};
    CPrgCntSubPhase * m_innermost = nullptr;
    std::exception_ptr m_keptException;
};

/// Narrows a counter down to a part of its present range for the lifetime of the object.
///
/// Opening moves the position to the start of the part and is a progress operation: when it throws, nothing
/// is open. Closing moves it to the end and never throws. Sub-phases nest; closing one closes those opened
/// inside it. With a null counter nothing happens at all. Cost: a few nanoseconds, no allocation.
class QZSYS_API CPrgCntSubPhase
{
public:
    /// The part from `start` to `start + length`, as fractions of the innermost open range. `start` is
    /// clamped to 0..1 and `length` to what is left behind it; NaN counts as 0.
    ///
    /// `expectedSteps` (how many reports will come from inside, 0 if unknown) and `shown` (whether the part
    /// means something to a user) describe the sub-phase to a reader of the code; neither has an influence on
    /// positions or hooks.
    CPrgCntSubPhase(CProgressCounter * counter, double start, double length, int expectedSteps, bool shown);
    /// The part in hundredths of the range.
    CPrgCntSubPhase(CProgressCounter * counter, int start, int length, int expectedSteps, bool shown);
    ~CPrgCntSubPhase() { Finish(); }
    CPrgCntSubPhase(CPrgCntSubPhase const &) = delete;
    CPrgCntSubPhase & operator=(CPrgCntSubPhase const &) = delete;

    /// Closes the sub-phase now. Does nothing when it is closed already.
    void Finish() noexcept
    {
        if (m_counter)
            m_counter->close(*this);
    }

private:
    friend class CProgressCounter;

    CProgressCounter * m_counter = nullptr; ///< Null while closed.
    CPrgCntSubPhase * m_outer = nullptr;
    CProgressCounter::Range m_range{0.0, 0.0}; ///< In overall positions.
};

/// A whole number of equal steps reported to a counter. Holds the counter without owning it; belongs to the
/// counter's thread.
class QZSYS_API CPrgCntIntegerScope
{
public:
    CPrgCntIntegerScope() = default;
    CPrgCntIntegerScope(CProgressCounter * counter, int total) { refresh(counter, total); }

    /// Starts over with a counter (may be null) and a total; a negative total counts as 0. Reports nothing.
    void refresh(CProgressCounter * counter, int total)
    {
        m_counter = counter;
        m_total = total > 0 ? total : 0;
        m_current = 0;
    }

    /// One step further, at most up to the total, and a report of current/total, or 1 for a total of 0. A
    /// progress operation: when it throws, the step is counted.
    void increment();

    CProgressCounter * getProgressCounter() const { return m_counter; }
    int getTotal() const { return m_total; }
    int getCurrent() const { return m_current; }

private:
    CProgressCounter * m_counter = nullptr;
    int m_total = 0;
    int m_current = 0;
};

namespace VsPCnt
{

class CMultiPhaseManagerSingleSubPhase;

/// Cuts the range that is open at the time of a phase's start into named phases, one behind the other in the
/// order of registration, each as long as its weight's share of the sum of all weights. If all weights are 0,
/// the shares are equal.
///
/// All phases should be registered before the first starts; one that comes later changes the shares of those
/// that follow. Phases may be left out or started in any order: the position never falls. Without a counter
/// nothing is reported and no name shown. Belongs to the counter's thread; no phase may be started after the
/// counter's end.
class QZSYS_API CMultiPhaseManager
{
public:
    explicit CMultiPhaseManager(CProgressCounter * counter);
    /// Closes the current phase.
    ~CMultiPhaseManager() = default;
    CMultiPhaseManager(CMultiPhaseManager const &) = delete;
    CMultiPhaseManager & operator=(CMultiPhaseManager const &) = delete;

    /// A weight that is negative, NaN or infinite counts as 0. A name registered again keeps its place and
    /// takes the new weight.
    void RegisterPhase(std::string const & name, double weight);

    /// Closes the current phase, if any, then opens the named one, which is a progress operation. A name that
    /// was never registered is given no share: it opens an empty part where the last phase ended.
    void StartPhase(std::string const & name);

    /// Closes the current phase, if any. Never throws.
    void FinishCurrentPhase() noexcept;

    /// From now on the counter's `onPhaseName` is called at the start of a phase.
    void showPhaseName();

private:
    friend class CMultiPhaseManagerSingleSubPhase;

    struct Phase
    {
        std::string name;
        double weight;
    };

    CProgressCounter * m_counter;
    std::vector<Phase> m_phases;
    std::optional<CPrgCntSubPhase> m_current;
    double m_lastEnd = 0.0; ///< Where the last phase ends, as a fraction of the manager's range.
    std::uint64_t m_phasesOpened =
        0; ///< Tells a scope whether the current phase is still the one it started.
    bool m_namesShown = false;
};

/// Holds one phase of a manager (may be null) open for the lifetime of the object. When the manager has gone
/// on to another phase meanwhile, that one is left open. The manager must live longer.
class QZSYS_API CMultiPhaseManagerSingleSubPhase
{
public:
    CMultiPhaseManagerSingleSubPhase(CMultiPhaseManager * manager, std::string const & name);
    ~CMultiPhaseManagerSingleSubPhase();
    CMultiPhaseManagerSingleSubPhase(CMultiPhaseManagerSingleSubPhase const &) = delete;
    CMultiPhaseManagerSingleSubPhase & operator=(CMultiPhaseManagerSingleSubPhase const &) = delete;

private:
    CMultiPhaseManager * m_manager;
    std::uint64_t m_phaseNumber = 0;
};

/// Position of a job whose length is only an estimate: in [0, 1) and rising for ever with `current`, also
/// past the estimate. Up to `expected` steps it rises evenly to 0.8; beyond, the rest shrinks with the
/// logarithm of the overrun.
/// @param current   steps done; negative counts as 0
/// @param expected  estimated number of steps; below 1 counts as 1
/// @param overrun   share of `expected` on whose scale the rest begins to shrink: the smaller, the faster the
///                  position rises just behind the estimate. Kept within 0.001 to 1000; NaN counts as 0.3, a
///                  fitting choice as it prolongs the slope of the first part almost evenly.
QZSYS_API double prgCntLongJobPosition(int current, int expected, double overrun);

} // namespace VsPCnt
