// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/VolTriang/ReconstructionReport.h>

#include <chrono>
#include <cstddef>
#include <vector>

namespace QZmath
{

struct ReconstructionReport;

/// Keeps the times of a call, and writes them into its report when it ends, however it ends: the core resets
/// its part of the report when it begins, and knows its own phases only. What begins has its room in the list
/// already, so that no end takes memory.
class CallRecord
{
    using Clock = std::chrono::steady_clock;

public:
    /// A stage of the call's own.
    class Phase
    {
    public:
        Phase(CallRecord & record, char const * name);
        ~Phase();
        Phase(Phase const &) = delete;
        Phase & operator=(Phase const &) = delete;

    private:
        CallRecord & m_record;
        std::size_t const m_index;
        Clock::time_point const m_start = Clock::now();
    };

    /// The run of the core.
    class Core
    {
    public:
        explicit Core(CallRecord & record);
        ~Core();
        Core(Core const &) = delete;
        Core & operator=(Core const &) = delete;

    private:
        CallRecord & m_record;
    };

    explicit CallRecord(ReconstructionReport & report) : m_report(report) {}
    ~CallRecord();
    CallRecord(CallRecord const &) = delete;
    CallRecord & operator=(CallRecord const &) = delete;

private:
    ReconstructionReport & m_report;
    Clock::time_point const m_start = Clock::now();
    std::vector<VolTr::CReconstructionReport::Phase> m_phases;
};

} // namespace QZmath
