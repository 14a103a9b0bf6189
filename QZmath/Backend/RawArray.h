// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>

namespace QzBackend
{

/// An array whose values nobody has set yet. Of a large one, the thread that first writes to a page gets it
/// from the system: in a loop on many threads that is shared, and not done by one thread beforehand.
template <class Value>
class RawArray
{
public:
    RawArray() = default;
    explicit RawArray(std::size_t count) : m_values(new Value[count]), m_size(count) {}

    Value & operator[](std::size_t index) { return m_values[index]; }
    Value const & operator[](std::size_t index) const { return m_values[index]; }
    Value * data() { return m_values.get(); }
    Value const * data() const { return m_values.get(); }
    std::size_t size() const { return m_size; }

private:
    std::unique_ptr<Value[]> m_values;
    std::size_t m_size = 0;
};

/// An array each page of which has been written to, with `report` called every few milliseconds: for
/// scattered writing afterwards, where each first touch of a page would take its time without a report in
/// between. Throws what `report` throws, and `std::bad_alloc`.
template <class Value, class Report>
RawArray<Value> touchedArray(std::size_t count, Report const & report)
{
    RawArray<Value> array(count);
    std::size_t const page = 4096 / sizeof(Value), reportedPages = 1024;
    for (std::size_t place = 0; place < count; place += page) {
        if (place % (page * reportedPages) == 0)
            report();
        array[place] = Value();
    }
    return array;
}

} // namespace QzBackend
