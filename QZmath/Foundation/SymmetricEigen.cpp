// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Foundation/SymmetricEigen.h>

#include <algorithm>
#include <cmath>

namespace
{

constexpr int mostSweeps = 100;

// sqrt(x² + y²) where neither the squares of large nor those of small numbers are lost.
double hypotenuse(double x, double y)
{
    double const squared = x * x + y * y;
    if (squared > 1e-280 && squared < 1e300)
        return std::sqrt(squared);
    double const larger = std::max(std::abs(x), std::abs(y));
    double const smaller = std::min(std::abs(x), std::abs(y));
    if (larger == 0)
        return 0;
    double const ratio = smaller / larger;
    return larger * std::sqrt(1 + ratio * ratio);
}

float hypotenuse(float x, float y)
{
    double const wideX = x, wideY = y;
    return static_cast<float>(std::sqrt(wideX * wideX + wideY * wideY));
}

// Turns row `row` into the Householder vector u that clears its elements left of the subdiagonal, and takes
// the reflection to the leading block: A := P A P with P = I - u u^T / h. The column above the diagonal gets
// u / h for the accumulation. Gives h, or 0 when there is nothing to clear.
template <class Real>
Real reflect(Real ** a, int row, Real * e)
{
    Real * const u = a[row];
    int const last = row - 1;
    Real scale = 0;
    for (int k = 0; k <= last; ++k)
        scale += std::abs(u[k]);
    if (last == 0 || scale == 0) {
        e[row] = u[last];
        return 0;
    }
    Real h = 0;
    for (int k = 0; k <= last; ++k) {
        u[k] /= scale;
        h += u[k] * u[k];
    }
    Real const corner = u[last];
    auto const length = static_cast<Real>(std::sqrt(static_cast<double>(h)));
    Real const image = corner >= 0 ? -length : length;
    e[row] = scale * image;
    h -= corner * image;
    u[last] = corner - image;

    // e[0..last] holds p = A u / h, and then q = p - u (u . p) / 2h.
    Real projection = 0;
    for (int j = 0; j <= last; ++j) {
        a[j][row] = u[j] / h;
        Real product = 0;
        for (int k = 0; k <= j; ++k)
            product += a[j][k] * u[k];
        for (int k = j + 1; k <= last; ++k)
            product += a[k][j] * u[k];
        e[j] = product / h;
        projection += e[j] * u[j];
    }
    Real const halfProjection = projection / (h + h);
    for (int j = 0; j <= last; ++j) {
        Real const uj = u[j];
        Real const qj = e[j] -= halfProjection * uj;
        for (int k = 0; k <= j; ++k)
            a[j][k] -= uj * e[k] + qj * u[k];
    }
    return h;
}

template <class Real>
void reduceToTridiagonal(Real ** a, int n, Real * d, Real * e)
{
    if (n < 1)
        return;
    for (int row = n - 1; row > 0; --row)
        d[row] = reflect(a, row, e);
    d[0] = 0;
    e[0] = 0;
    // The product of the reflections grows in the leading block; d holds their h up to here.
    for (int row = 0; row < n; ++row) {
        if (d[row] != 0) {
            for (int j = 0; j < row; ++j) {
                Real product = 0;
                for (int k = 0; k < row; ++k)
                    product += a[row][k] * a[k][j];
                for (int k = 0; k < row; ++k)
                    a[k][j] -= product * a[k][row];
            }
        }
        d[row] = a[row][row];
        a[row][row] = 1;
        for (int k = 0; k < row; ++k)
            a[k][row] = a[row][k] = 0;
    }
}

// First index from `first` on after which the subdiagonal is negligible beside the diagonal.
template <class Real>
int endOfBlock(Real const * d, Real const * e, int first, int n)
{
    for (int m = first; m < n - 1; ++m) {
        Real const diagonal = std::abs(d[m]) + std::abs(d[m + 1]);
        if (std::abs(e[m]) + diagonal == diagonal)
            return m;
    }
    return n - 1;
}

// One implicit QL sweep over the block of rows l to m, with the shift of the eigenvalue of its leading 2 by
// 2 block that is nearer to d[l].
template <class Real>
void sweep(Real * d, Real * e, int l, int m, int n, Real ** z)
{
    Real const halfGap = (d[l + 1] - d[l]) / (2 * e[l]);
    Real const root = hypotenuse(halfGap, Real(1));
    Real g = d[m] - d[l] + e[l] / (halfGap + std::copysign(root, halfGap));
    Real sine = 1, cosine = 1, shift = 0;
    for (int i = m - 1; i >= l; --i) {
        Real const f = sine * e[i];
        Real const b = cosine * e[i];
        Real const radius = hypotenuse(f, g);
        e[i + 1] = radius;
        if (radius == 0) {
            // The block has come apart at i + 1.
            d[i + 1] -= shift;
            e[m] = 0;
            return;
        }
        sine = f / radius;
        cosine = g / radius;
        g = d[i + 1] - shift;
        Real const change = (d[i] - g) * sine + 2 * cosine * b;
        shift = sine * change;
        d[i + 1] = g + shift;
        g = cosine * change - b;
        for (int k = 0; k < n; ++k) {
            Real const right = z[k][i + 1];
            z[k][i + 1] = sine * z[k][i] + cosine * right;
            z[k][i] = cosine * z[k][i] - sine * right;
        }
    }
    d[l] -= shift;
    e[l] = g;
    e[m] = 0;
}

template <class Real>
int diagonalise(Real * d, Real * e, int n, Real ** z)
{
    for (int i = 0; i < n; ++i) {
        if (std::isnan(d[i]) || (i > 0 && std::isnan(e[i])))
            return 0;
    }
    for (int i = 1; i < n; ++i)
        e[i - 1] = e[i];
    if (n > 0)
        e[n - 1] = 0;
    for (int l = 0; l < n; ++l) {
        int sweeps = 0;
        for (int m = endOfBlock(d, e, l, n); m != l; m = endOfBlock(d, e, l, n)) {
            if (sweeps++ == mostSweeps)
                return 0;
            sweep(d, e, l, m, n, z);
        }
    }
    return 1;
}

} // namespace

void tred2(float ** a, int n, float * d, float * e) { reduceToTridiagonal(a, n, d, e); }
void tred2_d(double ** a, int n, double * d, double * e) { reduceToTridiagonal(a, n, d, e); }

int tqli(float * d, float * e, int n, float ** z) { return diagonalise(d, e, n, z); }
int tqli_d(double * d, double * e, int n, double ** z) { return diagonalise(d, e, n, z); }
