// SPDX-License-Identifier: Apache-2.0
#include <QZsys/Progress.h>

#include <QZsys/Exceptions.h>

#include <algorithm>
#include <cmath>
#include <utility>

static_assert(std::atomic<bool>::is_always_lock_free, "interrupt() is called from signal handlers");

namespace
{

// To 0..1, NaN to 0.
double unitClamped(double value) { return value > 0.0 ? std::min(value, 1.0) : 0.0; }

} // namespace

CProgressCounter::~CProgressCounter()
{
    for (CPrgCntSubPhase * open = m_innermost; open; open = open->m_outer)
        open->m_counter = nullptr;
}

void CProgressCounter::onPosition(double) {}
void CProgressCounter::onPhaseName(std::string const &) {}

CProgressCounter::Range CProgressCounter::innermostRange() const noexcept
{
    return m_innermost ? m_innermost->m_range : Range{0.0, 1.0};
}

void CProgressCounter::throwPending()
{
    if (m_interruptRequested.load(std::memory_order_relaxed)) {
        m_interruptRequested.store(false, std::memory_order_relaxed);
        m_keptException = nullptr;
        throw CUserIntrException("user interruption");
    }
    if (m_keptException)
        std::rethrow_exception(std::exchange(m_keptException, nullptr));
}

void CProgressCounter::advanceTo(double overall)
{
    double reached = getPosFloat();
    bool const newRun = !m_innermost && (overall <= 0.0 || reached >= 1.0);
    if (newRun || overall > reached)
        m_position.store(reached = overall, std::memory_order_relaxed);
    onPosition(reached);
}

void CProgressCounter::SetPosFloat(double position)
{
    throwPending();
    Range const range = innermostRange();
    double const inside = unitClamped(position);
    double const overall = range.begin + inside * (range.end - range.begin);
    advanceTo(inside < 1.0 ? std::min(overall, range.end) : range.end);
}

void CProgressCounter::close(CPrgCntSubPhase & subPhase) noexcept
{
    for (CPrgCntSubPhase * inner = m_innermost; inner != &subPhase; inner = inner->m_outer)
        inner->m_counter = nullptr;
    m_innermost = subPhase.m_outer;
    subPhase.m_counter = nullptr;

    double const reached = std::max(getPosFloat(), subPhase.m_range.end);
    m_position.store(reached, std::memory_order_relaxed);
    try {
        onPosition(reached);
    } catch (...) {
        // While an exception unwinds the run, a second one would only poison the run after it.
        if (std::uncaught_exceptions() == 0 && !m_keptException)
            m_keptException = std::current_exception();
    }
}

void CProgressCounter::forgetRun() noexcept
{
    if (!m_innermost)
        m_position.store(0.0, std::memory_order_relaxed);
}

CPrgCntSubPhase::CPrgCntSubPhase(CProgressCounter * counter, double start, double length,
                                 int /*expectedSteps*/, bool /*shown*/)
{
    if (!counter)
        return;
    counter->throwPending();
    double const begin = unitClamped(start);
    double const end = std::min(begin + unitClamped(length), 1.0);
    CProgressCounter::Range const outer = counter->innermostRange();
    double const outerLength = outer.end - outer.begin;
    m_range.begin = std::min(outer.begin + begin * outerLength, outer.end);
    m_range.end = end < 1.0 ? std::min(outer.begin + end * outerLength, outer.end) : outer.end;
    counter->advanceTo(m_range.begin);

    m_outer = counter->m_innermost;
    m_counter = counter;
    counter->m_innermost = this;
}

CPrgCntSubPhase::CPrgCntSubPhase(CProgressCounter * counter, int start, int length, int expectedSteps,
                                 bool shown)
    : CPrgCntSubPhase(counter, start / 100.0, length / 100.0, expectedSteps, shown)
{}

void CPrgCntIntegerScope::increment()
{
    m_current = m_current < m_total ? m_current + 1 : m_total;
    if (m_counter)
        m_counter->SetPosFloat(m_total != 0 ? static_cast<double>(m_current) / m_total : 1.0);
}

namespace VsPCnt
{

CMultiPhaseManager::CMultiPhaseManager(CProgressCounter * counter) : m_counter(counter) {}

void CMultiPhaseManager::RegisterPhase(std::string const & name, double weight)
{
    double const usedWeight = std::isfinite(weight) && weight > 0.0 ? weight : 0.0;
    auto const known = std::find_if(m_phases.begin(), m_phases.end(),
                                    [&](Phase const & phase) { return phase.name == name; });
    if (known != m_phases.end())
        known->weight = usedWeight;
    else
        m_phases.push_back({name, usedWeight});
}

void CMultiPhaseManager::StartPhase(std::string const & name)
{
    FinishCurrentPhase();
    if (!m_counter)
        return;

    double largest = 0.0;
    for (Phase const & phase : m_phases)
        largest = std::max(largest, phase.weight);
    // Relative to the largest weight, so that huge weights do not overflow the sum.
    auto const share = [&](Phase const & phase) { return largest > 0.0 ? phase.weight / largest : 1.0; };
    double total = 0.0, before = 0.0, own = 0.0;
    bool found = false;
    for (Phase const & phase : m_phases) {
        if (phase.name == name) {
            found = true;
            before = total;
            own = share(phase);
        }
        total += share(phase);
    }

    double const begin = found ? before / total : m_lastEnd;
    double const end = found ? (before + own) / total : m_lastEnd;
    m_counter->throwPending();
    if (m_namesShown)
        m_counter->onPhaseName(name);
    m_current.emplace(m_counter, begin, end - begin, 0, true);
    m_lastEnd = end;
    ++m_phasesOpened;
}

void CMultiPhaseManager::FinishCurrentPhase() noexcept { m_current.reset(); }

void CMultiPhaseManager::showPhaseName() { m_namesShown = true; }

CMultiPhaseManagerSingleSubPhase::CMultiPhaseManagerSingleSubPhase(CMultiPhaseManager * manager,
                                                                   std::string const & name)
    : m_manager(manager)
{
    if (!m_manager)
        return;
    m_manager->StartPhase(name);
    m_phaseNumber = m_manager->m_phasesOpened;
}

CMultiPhaseManagerSingleSubPhase::~CMultiPhaseManagerSingleSubPhase()
{
    if (m_manager && m_manager->m_phasesOpened == m_phaseNumber)
        m_manager->FinishCurrentPhase();
}

double prgCntLongJobPosition(int current, int expected, double overrun)
{
    double const atEstimate = 0.8;
    double const done = static_cast<double>(std::max(current, 0)) / std::max(expected, 1);
    if (done <= 1.0)
        return atEstimate * done;
    double const scale = std::isnan(overrun) ? 0.3 : std::clamp(overrun, 1e-3, 1e3);
    return 1.0 - (1.0 - atEstimate) / (1.0 + std::log1p((done - 1.0) / scale));
}

} // namespace VsPCnt
