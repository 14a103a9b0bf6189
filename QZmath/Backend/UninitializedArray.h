// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/Place.h>

#include <memory>

namespace QzBackend
{

/// An array of numbers that are not set: for large ones that would take tenths of a second without a report
/// of progress in between.
template <class T>
class UninitializedArray
{
public:
    /// Forgets what is there. The system hands memory out page by page when it is first written to, which
    /// takes long where writes are scattered: so each page is written to here, with `report` called every few
    /// milliseconds. Throws what that throws, and `std::bad_alloc`.
    template <class Count, class Report>
    void allocate(Count size, Report const & report)
    {
        m_elements.reset();
        m_size = 0;
        m_elements.reset(new T[at(size)]);
        m_size = at(size);
        std::size_t const page = 4096 / sizeof(T), reportedPages = 1024;
        for (std::size_t place = 0; place < m_size; place += page) {
            if (place % (page * reportedPages) == 0)
                report();
            m_elements[place] = T();
        }
    }
    std::size_t size() const { return m_size; }
    T * data() { return m_elements.get(); }
    T const * data() const { return m_elements.get(); }
    T & operator[](std::size_t place) { return m_elements[place]; }
    T const & operator[](std::size_t place) const { return m_elements[place]; }

private:
    std::unique_ptr<T[]> m_elements;
    std::size_t m_size = 0;
};

} // namespace QzBackend
