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

} // namespace QzBackend
