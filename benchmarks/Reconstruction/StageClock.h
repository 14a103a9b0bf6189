// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/Progress.h>

#include <string>
#include <vector>

double wallSeconds();
/// Of the process, all threads together.
double cpuSeconds();

/// Wall and processor seconds, peak memory and the longest wait for an interruption between the starts of the
/// phases.
class StageClock : public CProgressCounter
{
public:
    struct Stage
    {
        std::string name;
        double wall = 0;
        double cpu = 0;
        double peakMegabytes = 0; ///< resident, of the whole process
        double longestGap = 0;    ///< wall seconds without a place where the run can be interrupted
    };

    /// Ends the current stage, and begins one unless the name is empty.
    void begin(std::string const & name) { onPhaseName(name); }
    /// Those that have ended, in the order in which they first began; one that came again is one.
    std::vector<Stage> const & stages() const { return m_stages; }
    /// The peaks of all stages and of the time between them.
    double peakMegabytes() const { return m_peak; }

protected:
    void onPhaseName(std::string const & name) override;
    void onPosition(double position) override;

private:
    std::vector<Stage> m_stages;
    std::string m_current;
    double m_wall = 0;
    double m_cpu = 0;
    double m_peak = 0;
    double m_lastPoll = 0; // 0: none yet
    double m_longestGap = 0;
};
