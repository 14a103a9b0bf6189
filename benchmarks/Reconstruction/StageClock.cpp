// SPDX-License-Identifier: Apache-2.0
#include "StageClock.h"

#include <algorithm>
#include <chrono>
#include <fstream>

#include <sys/resource.h>

namespace
{

double peakOfProcess()
{
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "VmHWM:") {
            double kilobytes = 0;
            status >> kilobytes;
            return kilobytes / 1024;
        }
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024;
}

// From now on the peak is that of what follows; where the system does not do this, that of all.
void forgetPeak() { std::ofstream("/proc/self/clear_refs") << 5; }

} // namespace

double wallSeconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto const seconds = [](timeval const & time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void StageClock::onPhaseName(std::string const & name)
{
    double const wall = wallSeconds();
    double const cpu = cpuSeconds();
    double const peak = peakOfProcess();
    m_peak = std::max(m_peak, peak);
    onPosition(0);
    if (!m_current.empty()) {
        auto stage = std::find_if(m_stages.begin(), m_stages.end(),
                                  [&](Stage const & known) { return known.name == m_current; });
        if (stage == m_stages.end()) {
            stage = m_stages.emplace(stage);
            stage->name = m_current;
        }
        stage->wall += wall - m_wall;
        stage->cpu += cpu - m_cpu;
        stage->peakMegabytes = std::max(stage->peakMegabytes, peak);
        stage->longestGap = std::max(stage->longestGap, m_longestGap);
    }
    m_longestGap = 0;
    forgetPeak();
    m_current = name;
    m_wall = wall;
    m_cpu = cpu;
}

void StageClock::onPosition(double)
{
    double const now = wallSeconds();
    if (m_lastPoll > 0)
        m_longestGap = std::max(m_longestGap, now - m_lastPoll);
    m_lastPoll = now;
}
