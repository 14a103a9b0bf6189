// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/EulerAngles.h>

#include <algorithm>
#include <cmath>

void makeEulerMatrix(CRotationMatrix & matrix, double const * angles)
{
    double const s1 = std::sin(angles[0]), c1 = std::cos(angles[0]);
    double const s2 = std::sin(angles[1]), c2 = std::cos(angles[1]);
    double const s3 = std::sin(angles[2]), c3 = std::cos(angles[2]);
    auto & m = matrix.m;
    m[0][0] = c1 * c2 * c3 - s1 * s3;
    m[0][1] = -c1 * c2 * s3 - s1 * c3;
    m[0][2] = c1 * s2;
    m[1][0] = c2 * s1 * c3 + c1 * s3;
    m[1][1] = c1 * c3 - c2 * s1 * s3;
    m[1][2] = s1 * s2;
    m[2][0] = -c3 * s2;
    m[2][1] = s3 * s2;
    m[2][2] = c2;
}

void getEulerAnglesFromMatrix(CRotationMatrix const & matrix, double & a0, double & a1, double & a2)
{
    constexpr double leastSine = 1e-05;
    auto const & m = matrix.m;
    double const cosine = std::clamp(m[2][2], -1.0, 1.0);
    double const sine = std::sqrt(1 - cosine * cosine);
    a1 = std::acos(cosine);
    if (sine <= leastSine) {
        a2 = 0;
        a0 = cosine > 0 ? std::atan2(m[1][0], m[0][0]) : std::atan2(-m[1][0], -m[0][0]);
        return;
    }
    a0 = std::atan2(m[1][2] / sine, m[0][2] / sine);
    a2 = std::atan2(m[2][1] / sine, -m[2][0] / sine);
}
