// SPDX-License-Identifier: Apache-2.0
#include <QZmath/SurfaceAnalysis/Projectors.h>

#include <QZmath/Foundation/VectorProductsDetail.h>
#include <QZmath/SurfaceAnalysis/Distances.h>

#include <cmath>
#include <cstddef>
#include <limits>
#include <list>

using REmath::Point3D;
using REmath::Point3D_d;

IPointToGeomObjProjector::IPointToGeomObjProjector() = default;
IPointToGeomObjProjector::IPointToGeomObjProjector(IPointToGeomObjProjector const &) = default;
IPointToGeomObjProjector & IPointToGeomObjProjector::operator=(IPointToGeomObjProjector const &) = default;
IPointToGeomObjProjector::~IPointToGeomObjProjector() = default;

IPointToGeomObjProjector * IPointToGeomObjProjector::Copy() const { return OnCopy(); }

bool IPointToGeomObjProjector::projectPoint(Point3D_d const & p, Point3D_d & result)
{
    return OnProjectPoint(p, result);
}

IPointToCurveProjector::IPointToCurveProjector() = default;
IPointToCurveProjector::IPointToCurveProjector(IPointToCurveProjector const &) = default;
IPointToCurveProjector & IPointToCurveProjector::operator=(IPointToCurveProjector const &) = default;

bool IPointToCurveProjector::projectPoint(Point3D_d const & p, Point3D_d & result, double & param)
{
    return OnProjectPoint(p, result, param);
}

bool IPointToCurveProjector::projectPoint(Point3D const & p, Point3D_d & result, double & param)
{
    return OnProjectPoint(REmath::Detail::widen(p), result, param);
}

bool IPointToCurveProjector::OnProjectPoint(Point3D_d const & p, Point3D_d & result)
{
    double param = 0;
    return OnProjectPoint(p, result, param);
}

IPointToFaceProjector::IPointToFaceProjector() = default;
IPointToFaceProjector::IPointToFaceProjector(IPointToFaceProjector const &) = default;
IPointToFaceProjector & IPointToFaceProjector::operator=(IPointToFaceProjector const &) = default;

bool IPointToFaceProjector::projectPoint(Point3D_d const & p, Point3D_d & result, double & u, double & v,
                                         bool & flag)
{
    return OnProjectPoint(p, result, u, v, flag);
}

bool IPointToFaceProjector::OnProjectPoint(Point3D_d const & p, Point3D_d & result)
{
    double u = 0, v = 0;
    bool flag = false;
    return OnProjectPoint(p, result, u, v, flag);
}

struct CProjectorsJoin::Members
{
    std::list<std::unique_ptr<IPointToGeomObjProjector>> projectors;
};

CProjectorsJoin::CProjectorsJoin() : m_members(std::make_unique<Members>()) {}
CProjectorsJoin::~CProjectorsJoin() = default;

void CProjectorsJoin::AddProjectorWithOwnerShip(IPointToGeomObjProjector * projector)
{
    std::unique_ptr<IPointToGeomObjProjector> owned(projector);
    if (owned)
        m_members->projectors.push_back(std::move(owned));
}

IPointToGeomObjProjector * CProjectorsJoin::OnCopy() const
{
    auto copy = std::make_unique<CProjectorsJoin>();
    for (std::unique_ptr<IPointToGeomObjProjector> const & projector : m_members->projectors)
        copy->AddProjectorWithOwnerShip(projector->Copy());
    return copy.release();
}

bool CProjectorsJoin::OnProjectPoint(Point3D_d const & p, Point3D_d & result)
{
    bool found = false;
    bool succeeded = false;
    double nearest = 0;
    Point3D_d nearestPoint;
    for (std::unique_ptr<IPointToGeomObjProjector> const & projector : m_members->projectors) {
        Point3D_d candidate;
        succeeded = projector->projectPoint(p, candidate);
        if (!succeeded)
            continue;
        Point3D_d const offset = candidate - p;
        double const squaredDistance = REmath::Detail::dot(offset, offset);
        // A result that is not a number gives way to any that is.
        if (!found || squaredDistance < nearest || std::isnan(nearest)) {
            found = true;
            nearest = squaredDistance;
            nearestPoint = candidate;
        }
    }
    if (found)
        result = nearestPoint;
    return succeeded;
}

CProjectorToPolyline::CProjectorToPolyline() = default;
CProjectorToPolyline::CProjectorToPolyline(std::vector<Point3D_d> const & polyline) : m_polyline(polyline) {}
CProjectorToPolyline::CProjectorToPolyline(CProjectorToPolyline const & other) = default;
CProjectorToPolyline & CProjectorToPolyline::operator=(CProjectorToPolyline const & other) = default;
CProjectorToPolyline::~CProjectorToPolyline() = default;

IPointToGeomObjProjector * CProjectorToPolyline::OnCopy() const { return new CProjectorToPolyline(*this); }

bool CProjectorToPolyline::OnProjectPoint(Point3D_d const & p, Point3D_d & result, double & param)
{
    if (m_polyline.empty())
        return false;
    if (m_polyline.size() == 1) {
        result = m_polyline.front();
        param = 0;
        return true;
    }
    constexpr double unreached = std::numeric_limits<double>::max();
    double nearest = unreached;
    double nearestPart = 0;
    std::size_t nearestSegment = 0;
    for (std::size_t segment = 0; segment + 1 < m_polyline.size(); ++segment) {
        double part = 0;
        double const squaredDistance = DistancePoint2Segment(p.asArray(), m_polyline[segment].asArray(),
                                                             m_polyline[segment + 1].asArray(), part);
        if (squaredDistance < nearest) {
            nearest = squaredDistance;
            nearestPart = part;
            nearestSegment = segment;
        }
    }
    if (nearest == unreached)
        return false;
    double foot[3];
    DistancePoint2Segment(p.asArray(), m_polyline[nearestSegment].asArray(),
                          m_polyline[nearestSegment + 1].asArray(), foot);
    result = Point3D_d(foot);
    param = static_cast<double>(nearestSegment) + nearestPart;
    return true;
}
