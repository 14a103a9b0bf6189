// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/Quaternion.h>

#include <QZmath/Foundation/EulerAngles.h>

#include <cmath>

namespace
{

// Cosine of the angle below which the division by its sine would cost accuracy.
constexpr double linearBlendCosine = 0.9998999834060669;

} // namespace

Quaternion::Quaternion(double scalar, double x, double y, double z) : m_scalar(scalar), m_x(x), m_y(y), m_z(z)
{}

Quaternion::Quaternion(double a0, double a1, double a2)
{
    double const angles[3] = {a0, a1, a2};
    CRotationMatrix matrix;
    makeEulerMatrix(matrix, angles);
    getQuaternionFromMatrix(matrix, *this);
    normalize();
}

void Quaternion::setIdentity() { *this = Quaternion(); }

void Quaternion::setToRotateAboutX(double angle)
{
    *this = Quaternion(std::cos(angle / 2), std::sin(angle / 2), 0, 0);
    normalize();
}

void Quaternion::setToRotateAboutY(double angle)
{
    *this = Quaternion(std::cos(angle / 2), 0, std::sin(angle / 2), 0);
}

void Quaternion::setToRotateAboutZ(double angle)
{
    *this = Quaternion(std::cos(angle / 2), 0, 0, std::sin(angle / 2));
}

void Quaternion::normalize()
{
    double const ownLength = length();
    if (!(ownLength > 0.0)) {
        setIdentity();
        return;
    }
    double const inverse = 1.0 / ownLength;
    *this = Quaternion(m_scalar * inverse, m_x * inverse, m_y * inverse, m_z * inverse);
}

double Quaternion::length() const { return std::sqrt(dotProduct(*this, *this)); }

void Quaternion::getRotationMatrix(CRotationMatrix & matrix) const
{
    double const w = m_scalar, x = m_x, y = m_y, z = m_z;
    auto & m = matrix.m;
    m[0][0] = 1 - 2 * (y * y + z * z);
    m[1][1] = 1 - 2 * (z * z + x * x);
    m[2][2] = 1 - 2 * (y * y + x * x);
    m[0][1] = 2 * (x * y + z * w);
    m[1][0] = 2 * (x * y - z * w);
    m[2][0] = 2 * (x * z + y * w);
    m[0][2] = 2 * (x * z - y * w);
    m[2][1] = 2 * (y * z - x * w);
    m[1][2] = 2 * (x * w + y * z);
}

void Quaternion::getEulerAngle(double & a0, double & a1, double & a2) const
{
    CRotationMatrix matrix;
    getRotationMatrix(matrix);
    getEulerAnglesFromMatrix(matrix, a0, a1, a2);
}

Quaternion Quaternion::slerp(Quaternion const & a, Quaternion const & b, double t)
{
    if (t <= 0)
        return a;
    if (t >= 1)
        return b;
    double cosine = dotProduct(a, b);
    double const sign = cosine < 0 ? -1 : 1;
    cosine *= sign;
    double weightA = 1 - t;
    double weightB = t;
    if (!(cosine > linearBlendCosine)) {
        double const sine = std::sqrt(1 - cosine * cosine);
        double const angle = std::atan2(sine, cosine);
        double const inverse = 1.0 / sine;
        weightA = std::sin(weightA * angle) * inverse;
        weightB = std::sin(angle * t) * inverse;
    }
    weightB *= sign;
    return {weightA * a.m_scalar + weightB * b.m_scalar, weightA * a.m_x + weightB * b.m_x,
            weightA * a.m_y + weightB * b.m_y, weightA * a.m_z + weightB * b.m_z};
}

double Quaternion::dotProduct(Quaternion const & a, Quaternion const & b)
{
    return a.m_scalar * b.m_scalar + a.m_x * b.m_x + a.m_y * b.m_y + a.m_z * b.m_z;
}

bool Quaternion::areEqualTo(Quaternion const & other, double eps) const
{
    return std::abs(m_scalar - other.m_scalar) <= eps && std::abs(m_x - other.m_x) <= eps &&
           std::abs(m_y - other.m_y) <= eps && std::abs(m_z - other.m_z) <= eps;
}

Quaternion Quaternion::operator*(Quaternion const & b) const
{
    Quaternion const & a = *this;
    return {a.m_scalar * b.m_scalar - a.m_y * b.m_y - a.m_z * b.m_z - a.m_x * b.m_x,
            a.m_z * b.m_y - a.m_y * b.m_z + a.m_x * b.m_scalar + a.m_scalar * b.m_x,
            a.m_y * b.m_scalar + a.m_scalar * b.m_y - a.m_z * b.m_x + a.m_x * b.m_z,
            a.m_y * b.m_x - a.m_x * b.m_y + a.m_z * b.m_scalar + a.m_scalar * b.m_z};
}

bool Quaternion::operator==(Quaternion const & other) const
{
    return m_scalar == other.m_scalar && m_x == other.m_x && m_y == other.m_y && m_z == other.m_z;
}

bool Quaternion::operator!=(Quaternion const & other) const { return !(*this == other); }

void getQuaternionFromMatrix(CRotationMatrix const & matrix, Quaternion & quaternion)
{
    auto const & m = matrix.m;
    // 4 w² - 1, 4 x² - 1 and so on: the largest component is found without cancellation.
    double const candidates[4] = {m[0][0] + m[1][1] + m[2][2], m[0][0] - m[1][1] - m[2][2],
                                  m[1][1] - m[0][0] - m[2][2], m[2][2] - m[0][0] - m[1][1]};
    int largest = 0;
    for (int i = 1; i < 4; ++i) {
        if (candidates[i] > candidates[largest])
            largest = i;
    }
    double const root = std::sqrt(candidates[largest] + 1) * 0.5;
    double const factor = 0.25 / root;
    double const x = factor * (m[1][2] - m[2][1]);
    double const y = factor * (m[2][0] - m[0][2]);
    double const z = factor * (m[0][1] - m[1][0]);
    double const xy = factor * (m[0][1] + m[1][0]);
    double const xz = factor * (m[0][2] + m[2][0]);
    double const yz = factor * (m[1][2] + m[2][1]);
    switch (largest) {
    case 0:
        quaternion = Quaternion(root, x, y, z);
        break;
    case 1:
        quaternion = Quaternion(x, root, xy, xz);
        break;
    case 2:
        quaternion = Quaternion(y, xy, root, yz);
        break;
    default:
        quaternion = Quaternion(z, xz, yz, root);
    }
}
