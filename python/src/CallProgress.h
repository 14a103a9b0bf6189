// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <python/src/Released.h>

#include <QZsys/Exceptions.h>
#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>

#include <pybind11/pybind11.h>

#include <chrono>
#include <optional>
#include <string>

namespace qz_python
{

namespace py = pybind11;

/// Progress of one call: works the library without the GIL, and comes back for it every 20 ms to look for
/// signals, as Ctrl-C is one, and to ask the caller's function. An exception of either, and a true answer,
/// interrupt the work; after that the exception goes on to the caller, or `qzmath.Cancelled` is raised.
class CallProgress final : public CProgressCounter
{
public:
    /// \param callback  None, or a function of the fraction and the name of the phase
    explicit CallProgress(py::object callback) : m_callback(std::move(callback)) {}

    /// Runs `work(progress)` on so many threads, 0 for all that the process may use.
    template <class Work>
    void run(int threads, Work const & work)
    {
        try {
            Released const released(this);
            CThreadNumberScope const scope(threads);
            work(*this);
        } catch (CUserIntrException const &) {
            raise();
        }
        if (m_error)
            raise();
    }

private:
    void onPosition(double overall) override;
    void onPhaseName(std::string const & name) override;
    [[noreturn]] void raise();

    py::object m_callback;
    std::string m_phase;
    std::chrono::steady_clock::time_point m_nextLook{};
    std::optional<py::error_already_set> m_error;
};

} // namespace qz_python
