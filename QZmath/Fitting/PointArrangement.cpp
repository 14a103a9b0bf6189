// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/PointArrangement.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace
{

// Positions closer than this are not told apart.
constexpr double margin = 0.01;

// Whether `middle` comes after `first` and before `last` on the way upwards round the circle.
bool isBetween(double first, double middle, double last)
{
    bool const isAfter = middle > first + margin, isBefore = middle < last - margin;
    return first < last ? isAfter && isBefore : isAfter || isBefore;
}

// A list of positions read cyclically, with a sorted copy that answers the votes in O(log n).
class TF_CircleOrder
{
public:
    TF_CircleOrder(std::vector<float> & values, int direction, int period)
        : m_values(values), m_sorted(values), m_direction(direction), m_period(period)
    {
        std::sort(m_sorted.begin(), m_sorted.end());
    }

    // Whether the step from value `i` to the next has the sense asked for.
    bool isRight(std::size_t i) const
    {
        float const from = m_values[i], to = m_values[next(i)];
        double const low = std::min(from, to), high = std::max(from, to);
        if (high - low <= margin)
            return false;
        auto const begin = std::partition_point(m_sorted.begin(), m_sorted.end(), [low](float value) {
            return static_cast<double>(value) <= low + margin;
        });
        auto const end = std::partition_point(begin, m_sorted.end(), [high](float value) {
            return static_cast<double>(value) < high - margin;
        });
        auto const equal = std::equal_range(m_sorted.begin(), m_sorted.end(), to);
        // One of those equal to `to` is the end of the step itself.
        std::ptrdiff_t const inside = (end - begin) + (equal.second - equal.first) - 1;
        std::ptrdiff_t const outside = static_cast<std::ptrdiff_t>(m_values.size()) - 2 - inside;
        std::ptrdiff_t const vote = from > to ? inside - outside : outside - inside;
        return m_direction > 0 ? vote > 0 : vote < 0;
    }

    // Repairs the surroundings of value `i`, from which a wrong step leads; false when that cannot be done.
    bool repair(std::size_t i)
    {
        std::size_t start = i, end = i, steps = 0;
        bool goesBack = true;
        while (!isRight(start) || !isRight(end)) {
            if (++steps >= m_values.size())
                return false;
            if (goesBack)
                start = previous(start);
            else
                end = next(end);
            goesBack = !goesBack;
        }
        return isInOrder(start, i, end) || fill(start, end);
    }

private:
    std::size_t next(std::size_t i) const { return i + 1 == m_values.size() ? 0 : i + 1; }
    std::size_t previous(std::size_t i) const { return i == 0 ? m_values.size() - 1 : i - 1; }
    double value(std::size_t i) const { return static_cast<double>(m_values[i]); }

    // Whether value `i` comes between the ends of the window in the sense asked for. Then it is not the one
    // that stands in the wrong place.
    bool isInOrder(std::size_t start, std::size_t i, std::size_t end) const
    {
        double first = value(start), last = value(end);
        if (m_direction < 0)
            std::swap(first, last);
        return isBetween(first, value(i), last);
    }

    // Spreads new values between the ends of the window, which has at least one value inside.
    bool fill(std::size_t start, std::size_t end)
    {
        double span = m_direction * (value(end) - value(start));
        if (span < 0)
            span = m_period - span;
        double const step = span / (1.0 + span);
        if (!std::isfinite(step))
            return false;
        for (std::size_t i = next(start); i != end; i = next(i)) {
            double position = value(previous(i)) + step;
            if (position + margin > m_period)
                position -= m_period;
            replace(m_values[i], static_cast<float>(position));
        }
        return true;
    }

    // Keeps the sorted copy in step.
    void replace(float & value, float replacement)
    {
        m_sorted.erase(std::lower_bound(m_sorted.begin(), m_sorted.end(), value));
        m_sorted.insert(std::upper_bound(m_sorted.begin(), m_sorted.end(), replacement), replacement);
        value = replacement;
    }

    std::vector<float> & m_values;
    std::vector<float> m_sorted;
    int m_direction;
    double m_period;
};

bool arrange(std::vector<float> & values, int direction, int period)
{
    TF_CircleOrder order(values, direction, period);
    bool isRepaired = false;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (order.isRight(i))
            continue;
        if (!order.repair(i))
            return false;
        isRepaired = true;
    }
    for (std::size_t i = 0; isRepaired && i < values.size(); ++i) {
        if (!order.isRight(i))
            return false;
    }
    return true;
}

} // namespace

bool ArrangePointsOnLine(std::vector<float> & values, int direction, int)
{
    std::sort(values.begin(), values.end(), [](float left, float right) {
        return left < right || (std::isnan(right) && !std::isnan(left));
    });
    if (direction < 0)
        std::reverse(values.begin(), values.end());
    return true;
}

bool ArrangePointsOnCircle(std::vector<float> & values, int direction, int period)
{
    if (values.empty())
        return true;
    if ((direction != 1 && direction != -1) ||
        !std::all_of(values.begin(), values.end(), [](float value) { return std::isfinite(value); }))
        return false;
    std::vector<float> arranged = values;
    if (!arrange(arranged, direction, period))
        return false;
    values.swap(arranged);
    return true;
}
