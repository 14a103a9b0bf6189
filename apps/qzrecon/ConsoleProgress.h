// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/Progress.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace qz_recon
{

/// Shows the progress on the standard error stream: on a terminal a bar with the name of the phase and the
/// elapsed time, which a thread of its own keeps alive; otherwise a line at the start of each phase.
class ConsoleProgress : public CProgressCounter
{
public:
    enum class Display
    {
        none,
        lines,
        bar
    };

    /// The display that fits the standard error stream.
    static Display fittingDisplay();

    explicit ConsoleProgress(Display display);
    ~ConsoleProgress() override;

    /// Opens a phase that belongs to the program and not to the reconstruction. An empty name closes the
    /// last.
    void enterPhase(std::string const & name);

    /// Ends the last phase and clears the bar away.
    void finish();

protected:
    void onPhaseName(std::string const & name) override;

private:
    using Clock = std::chrono::steady_clock;

    void keepDrawing();
    void drawLocked() const;
    double secondsSince(Clock::time_point start) const;

    Display m_display;
    Clock::time_point m_start = Clock::now();
    std::string m_phase;
    std::mutex m_mutex; ///< guards the phase and the bar's line
    std::condition_variable m_wake;
    bool m_finished = false;
    std::thread m_painter;
};

} // namespace qz_recon
