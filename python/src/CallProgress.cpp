// SPDX-License-Identifier: Apache-2.0
#include <python/src/CallProgress.h>

#include <utility>

namespace qz_python
{

namespace
{

// Often enough for a hand on the keyboard, seldom enough to cost nothing.
std::chrono::milliseconds const lookPeriod(20);

} // namespace

void CallProgress::onPosition(double overall)
{
    auto const now = std::chrono::steady_clock::now();
    if (now < m_nextLook || m_error)
        return;
    {
        py::gil_scoped_acquire const acquired;
        bool isCancelled = false;
        try {
            if (PyErr_CheckSignals() != 0)
                throw py::error_already_set();
            isCancelled = !m_callback.is_none() && static_cast<bool>(py::bool_(m_callback(overall, m_phase)));
        } catch (py::error_already_set & error) {
            m_error.emplace(std::move(error));
        }
        if (!isCancelled && !m_error) {
            m_nextLook = std::chrono::steady_clock::now() + lookPeriod;
            return;
        }
    }
    throw CUserIntrException("user interruption");
}

void CallProgress::onPhaseName(std::string const & name)
{
    m_phase = name;
    m_nextLook = {};
}

void CallProgress::raise()
{
    if (m_error)
        throw std::move(*m_error);
    if (Released::isEnding()) {
        PyErr_SetNone(PyExc_SystemExit);
        throw py::error_already_set();
    }
    PyErr_SetString(py::module_::import("qzmath").attr("Cancelled").ptr(), "cancelled by progress");
    throw py::error_already_set();
}

} // namespace qz_python
