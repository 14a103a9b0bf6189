// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/Point3D.h>

#include <memory>
#include <vector>

/// Objects that put points on a geometric object. `projectPoint` returns whether the object has an answer;
/// if not, the outputs are undefined. The result may be the projected point itself.
///
/// A projector is used by one thread at a time. `Copy` gives each thread one of its own.
class QZMATH_API IPointToGeomObjProjector
{
public:
    virtual ~IPointToGeomObjProjector();

    /// A new projector that the caller owns and that depends on this one no more; null where a class cannot
    /// be copied.
    IPointToGeomObjProjector * Copy() const;

    /// Puts `p` on the object.
    bool projectPoint(REmath::Point3D_d const & p, REmath::Point3D_d & result);

protected:
    IPointToGeomObjProjector();
    IPointToGeomObjProjector(IPointToGeomObjProjector const &);
    IPointToGeomObjProjector & operator=(IPointToGeomObjProjector const &);

    virtual IPointToGeomObjProjector * OnCopy() const = 0;
    virtual bool OnProjectPoint(REmath::Point3D_d const & p, REmath::Point3D_d & result) = 0;
};

/// Projector on a curve, which also tells the parameter of the result on the curve.
class QZMATH_API IPointToCurveProjector : public IPointToGeomObjProjector
{
public:
    using IPointToGeomObjProjector::projectPoint;
    bool projectPoint(REmath::Point3D_d const & p, REmath::Point3D_d & result, double & param);
    bool projectPoint(REmath::Point3D const & p, REmath::Point3D_d & result, double & param);

protected:
    IPointToCurveProjector();
    IPointToCurveProjector(IPointToCurveProjector const &);
    IPointToCurveProjector & operator=(IPointToCurveProjector const &);

    /// Projects without the parameter.
    bool OnProjectPoint(REmath::Point3D_d const & p, REmath::Point3D_d & result) override;
    virtual bool OnProjectPoint(REmath::Point3D_d const & p, REmath::Point3D_d & result, double & param) = 0;
};

/// Projector on a face, which also tells the two parameters of the result on the face, and a flag whose
/// meaning is that of the derived class.
class QZMATH_API IPointToFaceProjector : public IPointToGeomObjProjector
{
public:
    using IPointToGeomObjProjector::projectPoint;
    bool projectPoint(REmath::Point3D_d const & p, REmath::Point3D_d & result, double & u, double & v,
                      bool & flag);

protected:
    IPointToFaceProjector();
    IPointToFaceProjector(IPointToFaceProjector const &);
    IPointToFaceProjector & operator=(IPointToFaceProjector const &);

    /// Projects without parameters and flag.
    bool OnProjectPoint(REmath::Point3D_d const & p, REmath::Point3D_d & result) override;
    virtual bool OnProjectPoint(REmath::Point3D_d const & p, REmath::Point3D_d & result, double & u,
                                double & v, bool & flag) = 0;
};

/// Projector on the nearest of several objects. Asks all of them for every point.
///
/// The result is the nearest of those that the members found, of equally near ones the first. Whether
/// `projectPoint` returns true is decided by the last member alone: **do not rely on it**. The result is
/// untouched when no member found one.
class QZMATH_API CProjectorsJoin : public IPointToGeomObjProjector
{
public:
    /// Without members, which finds nothing.
    CProjectorsJoin();
    ~CProjectorsJoin() override;
    CProjectorsJoin(CProjectorsJoin const &) = delete;
    CProjectorsJoin & operator=(CProjectorsJoin const &) = delete;

    /// Appends a member, which is deleted with this object; a null does nothing. When memory is exhausted the
    /// projector is deleted and `std::bad_alloc` thrown.
    void AddProjectorWithOwnerShip(IPointToGeomObjProjector * projector);

protected:
    /// A join of copies. Members whose copy is null are left out.
    IPointToGeomObjProjector * OnCopy() const override;
    bool OnProjectPoint(REmath::Point3D_d const & p, REmath::Point3D_d & result) override;

private:
    struct Members;
    std::unique_ptr<Members> m_members;
};

/// Projector on the nearest point of a polyline. Its parameter is the index of the segment plus the part of
/// it, 0 to the number of points less one; the first of equally near segments counts.
///
/// Takes time linear in the number of points and allocates nothing per call. No answer on an empty polyline,
/// and none where no distance is finite; of a segment with an end that is not finite, at most the other end
/// counts. A single point is a polyline with parameter 0.
class QZMATH_API CProjectorToPolyline : public IPointToCurveProjector
{
public:
    /// An empty polyline.
    CProjectorToPolyline();
    /// Copies the points.
    explicit CProjectorToPolyline(std::vector<REmath::Point3D_d> const & polyline);
    CProjectorToPolyline(CProjectorToPolyline const & other);
    CProjectorToPolyline & operator=(CProjectorToPolyline const & other);
    ~CProjectorToPolyline() override;

protected:
    IPointToGeomObjProjector * OnCopy() const override;
    using IPointToCurveProjector::OnProjectPoint;
    bool OnProjectPoint(REmath::Point3D_d const & p, REmath::Point3D_d & result, double & param) override;

private:
    std::vector<REmath::Point3D_d> m_polyline;
};
