// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/LargeVector.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <type_traits>

namespace QzBackend
{

/// A vector of plain values that may become large while nobody can wait for a copy of it: the system moves
/// the pages of a large one to a larger place without touching them. So it does not take twice its memory
/// while it grows, either.
template <class Value>
class GrowingArray
{
    static_assert(std::is_trivially_copyable<Value>::value && alignof(Value) <= alignof(std::max_align_t));

public:
    Value & operator[](std::size_t index) { return m_values.get()[index]; }
    Value const & operator[](std::size_t index) const { return m_values.get()[index]; }
    Value * data() { return m_values.get(); }
    Value & back() { return m_values.get()[m_size - 1]; }
    std::size_t size() const { return m_size; }

    /// Throws `std::bad_alloc`, as all that grows; nothing has changed then.
    void reserve(std::size_t count)
    {
        if (count <= m_capacity)
            return;
        void * const memory = std::realloc(m_values.get(), count * sizeof(Value));
        if (memory == nullptr)
            throw std::bad_alloc();
        static_cast<void>(m_values.release());
        m_values.reset(static_cast<Value *>(memory));
        m_capacity = count;
        adviseLargePages(m_values.get(), count * sizeof(Value));
    }

    void resize(std::size_t count, Value const & value = Value())
    {
        Value const kept = value; // may be an element
        if (count > m_capacity)
            reserve(std::max(count, 2 * m_capacity));
        if (count > m_size)
            std::uninitialized_fill(m_values.get() + m_size, m_values.get() + count, kept);
        m_size = count;
    }

    void emplaceBack() { resize(m_size + 1); }

private:
    struct Free
    {
        void operator()(Value * values) const { std::free(values); }
    };

    std::unique_ptr<Value[], Free> m_values;
    std::size_t m_size = 0;
    std::size_t m_capacity = 0;
};

/// `values.resize(count, value)`, open to interruption.
template <class Value>
void resizeLarge(LoopTeam & team, GrowingArray<Value> & values, std::size_t count, Value const & value)
{
    std::size_t const perTurn = std::max<std::size_t>((std::size_t{4} << 20) / sizeof(Value), 1);
    values.reserve(count);
    while (values.size() < count) {
        team.serve();
        values.resize(values.size() + std::min(perTurn, count - values.size()), value);
    }
}

} // namespace QzBackend
