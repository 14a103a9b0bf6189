// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/RunPhases.h>

#include <QZmath/VolTriang/ReconstructionReport.h>

#include <algorithm>
#include <exception>
#include <fstream>
#include <locale>
#include <string>

namespace VolTr
{

namespace
{

// Resident memory of the process in bytes, now and at its greatest; 0 where the system does not tell.
struct ProcessMemory
{
    std::int64_t resident = 0;
    std::int64_t mark = 0;

    ProcessMemory()
    {
        std::ifstream status("/proc/self/status");
        status.imbue(std::locale::classic());
        for (std::string word; status >> word; std::getline(status, word)) {
            if (word == "VmHWM:")
                mark = kilobytes(status);
            else if (word == "VmRSS:")
                resident = kilobytes(status);
        }
    }

private:
    static std::int64_t kilobytes(std::istream & stream)
    {
        std::int64_t number = 0;
        return stream >> number ? 1024 * number : 0;
    }
};

double secondsBetween(std::chrono::steady_clock::time_point begin, std::chrono::steady_clock::time_point end)
{
    return std::chrono::duration<double>(end - begin).count();
}

} // namespace

RunRecord::RunRecord(CReconstructionReport & report) : m_report(report), m_start(Clock::now())
{
    ProcessMemory const memory;
    m_residentAtStart = memory.resident;
    m_markAtStart = memory.mark;
}

RunRecord::~RunRecord()
{
    noteMemory();
    m_report.seconds = secondsBetween(m_start, Clock::now());
    for (CReconstructionReport::Phase & phase : m_report.phases)
        phase.share = m_report.seconds > 0.0 ? std::min(1.0, phase.seconds / m_report.seconds) : 0.0;
}

void RunRecord::beginPhase(char const * name)
{
    m_report.phases.push_back({name, 0.0, 0.0});
    m_phaseStart = Clock::now();
}

void RunRecord::endPhase()
{
    m_report.phases.back().seconds = secondsBetween(m_phaseStart, Clock::now());
    noteMemory();
}

void RunRecord::noteMemory() noexcept
{
    try {
        ProcessMemory const memory;
        std::int64_t const greatest = memory.mark > m_markAtStart ? memory.mark : memory.resident;
        m_report.peakMemory = std::max(m_report.peakMemory, greatest - m_residentAtStart);
    } catch (std::exception const &) { // no memory left to look with
    }
}

RunPhases::Scope::Scope(RunPhases & phases, char const * name)
    : m_record(phases.m_record), m_phase(&phases.m_manager, name)
{
    if (m_record != nullptr)
        m_record->beginPhase(name);
}

RunPhases::Scope::~Scope()
{
    if (m_record != nullptr)
        m_record->endPhase();
}

} // namespace VolTr
