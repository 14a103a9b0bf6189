// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Call/CallRecord.h>

#include <QZmath/Reconstruction/Reconstruction.h>

#include <utility>

namespace QZmath
{

namespace
{

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

void CallRecord::add(char const * name, Clock::time_point start)
{
    m_phases.push_back({name, secondsSince(start), 0.0});
}

void CallRecord::addCore()
{
    m_phases.insert(m_phases.end(), m_report.phases.begin(), m_report.phases.end());
}

CallRecord::~CallRecord()
{
    m_report.seconds = secondsSince(m_start);
    for (VolTr::CReconstructionReport::Phase & phase : m_phases)
        phase.share = m_report.seconds > 0.0 ? phase.seconds / m_report.seconds : 0.0;
    m_report.phases = std::move(m_phases);
}

} // namespace QZmath
