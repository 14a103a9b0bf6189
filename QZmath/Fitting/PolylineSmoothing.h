// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>

#include <vector>

/// How a polyline is smoothed. The list of fixed points stays the caller's and must outlive the parameters.
class QZMATH_API CPolylineSmoothParams
{
public:
    CPolylineSmoothParams();
    CPolylineSmoothParams(bool closed, double weight, int nIter, bool preserveShape,
                          std::vector<int> * fixed);
    CPolylineSmoothParams(CPolylineSmoothParams const & other) = default;
    CPolylineSmoothParams & operator=(CPolylineSmoothParams const & other) = default;
    virtual ~CPolylineSmoothParams();

    /// Open, weight 0.4, 10 iterations, preserving the shape, no fixed points.
    virtual void SetDefaultValues();

    /// Whether the polyline is a loop, whose last point repeats the first.
    bool GetIsClosed() const { return m_closed; }
    void SetClosed(bool closed) { m_closed = closed; }

    /// Share of the way that a point goes to the middle of its neighbours in one step; between 0 and 1.
    double GetWeight() const { return m_weight; }
    void SetWeight(double weight) { m_weight = weight; }

    /// Number of passes; none when it is below 1.
    int GetNIter() const { return m_nIter; }
    void SetNIter(int nIter) { m_nIter = nIter; }

    /// Whether each step is followed by a slightly larger one back, which undoes the shrinking.
    bool GetPreserveShape() const { return m_preserveShape; }
    void SetPreserveShape(bool preserveShape) { m_preserveShape = preserveShape; }

    /// Indices of the points that keep their place; null for none. Not owned.
    std::vector<int> const * GetPtrFixedPtIdx() const { return m_ptrFixedPtIdx; }
    void SetPtrFixedPtIdx(std::vector<int> const * fixed) { m_ptrFixedPtIdx = fixed; }

protected:
    virtual void SetDefaultValuesPolyline();

private:
    bool m_closed;
    double m_weight;
    int m_nIter;
    bool m_preserveShape;
    std::vector<int> const * m_ptrFixedPtIdx;
};

/// Smooths the polyline in place while the fixed points stay exactly where they are.
///
/// One pass moves each point by the weight w towards the middle of its neighbours and then, when the shape is
/// to be preserved, by w / (1 - 0.1 w) away from it, which passes low frequencies unchanged (G. Taubin, A
/// Signal Processing Approach to Fair Surface Design, 1995). The ends of an open polyline stay. In a closed
/// one, the last point is taken for a copy of the first and becomes one; its index means the first point.
///
/// The passes know nothing of the fixed points. Since they are linear, the result is then corrected by that
/// combination of their responses to a unit push at each fixed point which brings all fixed points back; so
/// it is what the passes make of the polyline when the **original** fixed points are displaced suitably, and
/// the neighbourhood follows smoothly. For k fixed points of n this takes k + 1 times the work of the passes
/// alone, O(k n + k²) memory and a dense system of order k: k must stay small.
///
/// The `float` form rounds the coordinates to `float` after each step; the correction is computed in
/// `double`.
///
/// Fewer than two points are returned as they are, with true. False:
/// - with the points untouched when an index is out of range, or one of the two weights is not finite;
/// - with the points smoothed but not corrected, the last one of a closed polyline as it came in, when the
///   fixed points do not determine the correction: an index stands twice in the list, or so many passes lie
///   over fixed points so close together that their responses cannot be told apart; also when the smoothed
///   points or the correction are not finite.
///
/// Independent of the number of threads. Throws `std::bad_alloc` when memory runs out.
QZMATH_API bool smoothPolylineWithFixedPoints(std::vector<REmath::Point3D> & points,
                                              CPolylineSmoothParams const & params);
QZMATH_API bool smoothPolylineWithFixedPoints(std::vector<REmath::Point3D_d> & points,
                                              CPolylineSmoothParams const & params);
