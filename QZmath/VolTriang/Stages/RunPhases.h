// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <QZsys/Progress.h>

#include <chrono>
#include <cstdint>

namespace VolTr
{

class CReconstructionReport;

/// Watches how long a run and its phases take and how its memory grows, and tells the report: at the end of
/// each phase and, also of a run that fails, at its own end.
class RunRecord
{
public:
    explicit RunRecord(CReconstructionReport & report);
    ~RunRecord();
    RunRecord(RunRecord const &) = delete;
    RunRecord & operator=(RunRecord const &) = delete;

    void beginPhase(char const * name);
    void endPhase();

private:
    using Clock = std::chrono::steady_clock;

    void noteMemory() noexcept;

    CReconstructionReport & m_report;
    Clock::time_point const m_start;
    Clock::time_point m_phaseStart;
    std::int64_t m_residentAtStart = 0; // bytes
    std::int64_t m_markAtStart = 0;
};

/// The phases of a run: each moves the progress by its share of the sum of the registered weights.
class QZMATH_SISTER_API RunPhases
{
public:
    /// \param progress may be null
    /// \param record   learns of each phase; null for phases inside of another one
    RunPhases(CProgressCounter * progress, RunRecord * record) : m_manager(progress), m_record(record) {}

    /// In the order in which they will run, each with its expected share of the time.
    void add(char const * name, double weight) { m_manager.RegisterPhase(name, weight); }
    void showNames() { m_manager.showPhaseName(); }

    /// Holds a phase open.
    class Scope
    {
    public:
        Scope(RunPhases & phases, char const * name);
        ~Scope();
        Scope(Scope const &) = delete;
        Scope & operator=(Scope const &) = delete;

    private:
        RunRecord * m_record;
        VsPCnt::CMultiPhaseManagerSingleSubPhase m_phase;
    };

private:
    VsPCnt::CMultiPhaseManager m_manager;
    RunRecord * m_record;
};

} // namespace VolTr
