// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Call/CallRecord.h>

#include <QZmath/Reconstruction/Reconstruction.h>

#include <utility>

namespace QZmath
{

namespace
{

std::size_t const st_mostPhasesOfCore = 32; // it has about a dozen

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

CallRecord::Phase::Phase(CallRecord & record, char const * name)
    : m_record(record), m_index(record.m_phases.size())
{
    m_record.m_phases.push_back({name, 0.0, 0.0});
}

CallRecord::Phase::~Phase() { m_record.m_phases[m_index].seconds = secondsSince(m_start); }

CallRecord::Core::Core(CallRecord & record) : m_record(record)
{
    m_record.m_phases.reserve(m_record.m_phases.size() + st_mostPhasesOfCore);
}

CallRecord::Core::~Core()
{
    for (VolTr::CReconstructionReport::Phase & phase : m_record.m_report.phases)
        if (m_record.m_phases.size() < m_record.m_phases.capacity())
            m_record.m_phases.push_back(std::move(phase));
}

CallRecord::~CallRecord()
{
    m_report.seconds = secondsSince(m_start);
    for (VolTr::CReconstructionReport::Phase & phase : m_phases)
        phase.share = m_report.seconds > 0.0 ? phase.seconds / m_report.seconds : 0.0;
    m_report.phases = std::move(m_phases);
}

} // namespace QZmath
