// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/Progress.h>

#include <cmath>
#include <cstddef>
#include <vector>

namespace REmath
{
namespace Detail
{

/// Iterations that a solve is taken to need before anything is known.
int const expectedIterations = 1000;

/// What a solve with the next right part is taken to need after one that took `iterations`.
inline int expectedAfter(int iterations) { return static_cast<int>(iterations * 1.5 + 1.0); }

/// Reports the products of an iteration to a progress counter. What the counter throws ends the iteration.
class ProductProgress
{
public:
    ProductProgress(CProgressCounter * progress, int expected)
        : m_progress(progress), m_expected(expected), m_calls(0)
    {}

    void afterProduct()
    {
        ++m_calls;
        if (m_progress != nullptr)
            m_progress->SetPosFloat(static_cast<double>(m_calls) / m_expected);
    }

private:
    CProgressCounter * m_progress;
    int m_expected;
    int m_calls;
};

/// |A x - b| / |b|, from A x; NaN when b is 0 as well as A x.
template <class T>
T relativeResidual(std::vector<T> const & product, T const * rightPart)
{
    double residual = 0.0;
    double scale = 0.0;
    for (std::size_t row = 0; row < product.size(); ++row) {
        double const difference = static_cast<double>(product[row]) - static_cast<double>(rightPart[row]);
        residual += difference * difference;
        scale += static_cast<double>(rightPart[row]) * static_cast<double>(rightPart[row]);
    }
    return static_cast<T>(std::sqrt(residual / scale));
}

} // namespace Detail
} // namespace REmath
