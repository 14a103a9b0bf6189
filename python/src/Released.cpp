// SPDX-License-Identifier: Apache-2.0
#include <python/src/Released.h>

#include <QZsys/Progress.h>

#include <chrono>
#include <thread>

namespace qz_python
{

namespace
{

namespace py = pybind11;

std::chrono::milliseconds const waitingPeriod(2);

Released * underWay = nullptr;
bool hasEndBegun = false;
int generation = 0; // counts forks: the threads of what was under way stay behind

} // namespace

Released::Released(CProgressCounter * counter)
    : m_counter(counter), m_next(underWay), m_generation(generation)
{
    if (hasEndBegun) {
        PyErr_SetNone(PyExc_SystemExit);
        throw py::error_already_set();
    }
    if (m_next != nullptr)
        m_next->m_before = this;
    underWay = this;
    m_released.emplace();
}

Released::~Released()
{
    m_released.reset(); // the GIL is there again
    if (m_generation != generation)
        return;
    if (m_next != nullptr)
        m_next->m_before = m_before;
    (m_before != nullptr ? m_before->m_next : underWay) = m_next;
}

bool Released::isEnding() { return hasEndBegun; }

void Released::endAll()
{
    hasEndBegun = true;
    while (underWay != nullptr) {
        for (Released * one = underWay; one != nullptr; one = one->m_next) {
            if (one->m_counter != nullptr)
                one->m_counter->interrupt();
        }
        py::gil_scoped_release const released;
        std::this_thread::sleep_for(waitingPeriod);
    }
}

void Released::forgetAll()
{
    underWay = nullptr;
    ++generation;
}

void Released::watchEnd()
{
    py::module_::import("atexit").attr("register")(py::cpp_function(&endAll));
    py::module_::import("os").attr("register_at_fork")(py::arg("after_in_child") =
                                                           py::cpp_function(&forgetAll));
}

} // namespace qz_python
