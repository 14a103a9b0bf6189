// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pybind11/pybind11.h>

#include <optional>

class CProgressCounter;

namespace qz_python
{

/// While it lives, other threads of Python run: the GIL is released for work of the library.
///
/// A thread that comes back for the GIL of an interpreter that ends would be torn out of the library, and the
/// process with it. So the interpreter's end interrupts the work that is under way, on daemon threads,
/// through its progress counter, and waits for it; and new work is refused with `SystemExit`. Made and
/// destroyed under the GIL, which protects the list of what is under way.
class Released
{
public:
    /// \param counter of the work, null where it has none and is waited for
    explicit Released(CProgressCounter * counter = nullptr);
    ~Released();
    Released(Released const &) = delete;
    Released & operator=(Released const &) = delete;

    /// Has the interpreter's end begun? Under the GIL.
    static bool isEnding();
    /// Arranges for that at the interpreter's end.
    static void watchEnd();

private:
    static void endAll();
    static void forgetAll();

    CProgressCounter * m_counter;
    Released * m_next;
    Released * m_before = nullptr;
    int m_generation;
    std::optional<pybind11::gil_scoped_release> m_released;
};

} // namespace qz_python
