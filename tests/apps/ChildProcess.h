// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <support/TestFolder.h>

#include <sys/types.h>

namespace qz_test
{

/// A program in a process of its own, with its output in memory when it has ended. Signals are set to their
/// defaults for it, whatever the test was started with.
class ChildProcess
{
public:
    /// \param arguments the program's path and what follows
    /// \param prepare   runs in the child before the program, e.g. to set limits
    explicit ChildProcess(std::vector<std::string> const & arguments,
                          std::function<void()> const & prepare = {});
    ~ChildProcess();
    ChildProcess(ChildProcess const &) = delete;
    ChildProcess & operator=(ChildProcess const &) = delete;

    /// Waits until the program has written something to its error stream, or for ten seconds.
    void waitForErrors() const;
    void send(int signal) const;
    /// Waits for the end and returns the exit code, or minus the signal that ended the program.
    int wait();

    /// Of an ended program.
    std::string const & output() const { return m_output; }
    std::string const & errors() const { return m_errors; }

private:
    TestFolder m_streams;
    pid_t m_id = -1;
    std::string m_output, m_errors;
};

} // namespace qz_test
