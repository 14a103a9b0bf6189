// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/DebugLog.h>
#include <QZsys/Progress.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace qz_test
{

/// Records what the hooks get and calls back from them. Fails when a hook is called on a thread other than
/// the maker's, or than `owner`, where it was changed; without an owner, when two threads are inside at once.
class ProgressRecorder : public CProgressCounter
{
public:
    std::vector<double> positions;
    std::vector<std::string> names;
    std::function<void()> inPosition, inName;
    double interruptBeyond = 2.0; ///< Positions above interrupt the run.
    std::thread::id owner = std::this_thread::get_id();

    /// Positions never fall, but that a run may follow another that has reached the end.
    bool isMonotone() const
    {
        auto const falls = [](double a, double b) { return a > b && a < 1.0; };
        return std::adjacent_find(positions.begin(), positions.end(), falls) == positions.end();
    }

protected:
    void onPosition(double overall) override
    {
        ASSERT_FALSE(m_isBusy.exchange(true));
        ASSERT_TRUE(owner == std::thread::id() || owner == std::this_thread::get_id());
        positions.push_back(overall);
        m_isBusy = false;
        if (overall > interruptBeyond)
            interrupt();
        if (inPosition)
            inPosition();
    }
    void onPhaseName(std::string const & name) override
    {
        names.push_back(name);
        if (inName)
            inName();
    }

private:
    std::atomic<bool> m_isBusy{false};
};

/// Keeps the lines that come from any thread, calls back for each, and lets a thread wait for one.
class LogRecorder : public VsUt::IDebugLog
{
public:
    std::function<void(std::string const &)> onLine;

    void getMessage(char const * line) override
    {
        {
            std::lock_guard<std::mutex> const lock(m_mutex);
            m_lines.emplace_back(line);
        }
        m_changed.notify_all();
        if (onLine)
            onLine(line);
    }
    std::vector<std::string> lines() const
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        return m_lines;
    }
    void await(std::string const & line)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        EXPECT_TRUE(m_changed.wait_for(lock, std::chrono::seconds(60), [&] {
            return std::find(m_lines.begin(), m_lines.end(), line) != m_lines.end();
        })) << line;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_lines;
};

} // namespace qz_test
