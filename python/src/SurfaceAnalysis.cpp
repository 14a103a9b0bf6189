// SPDX-License-Identifier: Apache-2.0
#include <python/src/Arrays.h>
#include <python/src/CallProgress.h>
#include <python/src/Subsystems.h>

#include <QZmath/SurfaceAnalysis/CloudNormals.h>

#include <limits>

namespace qz_python
{

namespace
{

// Counts of points are `int` in the library.
int countOf(py::array const & points)
{
    numbersOf<float>(points, "points", -1, 3);
    if (points.shape(0) > std::numeric_limits<int>::max())
        throw py::value_error("there are more than 2147483647 points");
    return static_cast<int>(points.shape(0));
}

CNeighbourhoodPrms neighbourhoodOf(int count, double radius)
{
    CNeighbourhoodPrms neighbourhood;
    neighbourhood.count = count;
    neighbourhood.radius = radius;
    return neighbourhood;
}

py::array_t<float> estimateNormals(py::array const & points, int count, double radius, int orientation,
                                   py::array const & viewpoint, int threads, py::object const & callback)
{
    int const n = countOf(points);
    CEstimateNormalsPrms prms;
    prms.neighbourhood = neighbourhoodOf(count, radius);
    prms.orientation = orientation == 0   ? NormalOrientation::none
                       : orientation == 1 ? NormalOrientation::viewpoint
                                          : NormalOrientation::spanningTree;
    double const * const place = numbersOf<double>(viewpoint, "viewpoint", 3, 0);
    prms.viewpoint = REmath::Point3D(place[0], place[1], place[2]);
    REmath::Point3D const * const cloud = asPoints(static_cast<float const *>(points.data()));
    py::array_t<float> normals({py::ssize_t{n}, py::ssize_t{3}});
    auto * const result = const_cast<REmath::Point3D *>(asPoints(normals.mutable_data()));
    CallProgress(callback).run(
        threads, [&](CProgressCounter & counter) { EstimateNormals(n, cloud, prms, result, &counter); });
    return normals;
}

// The records of the library as they are, see the dtype.
py::array estimateCurvatures(py::array const & points, py::object const & normals, int count, double radius,
                             int threads, py::object const & callback)
{
    int const n = countOf(points);
    CNeighbourhoodPrms const neighbourhood = neighbourhoodOf(count, radius);
    REmath::Point3D const * const cloud = asPoints(static_cast<float const *>(points.data()));
    float const * const given = numbersOrNull<float>(normals, "normals", n, 3);
    std::vector<CPointCurvatures> found(static_cast<std::size_t>(n));
    CallProgress(callback).run(threads, [&](CProgressCounter & counter) {
        EstimateCurvatures(n, cloud, neighbourhood, given == nullptr ? nullptr : asPoints(given),
                           found.data(), &counter);
    });
    static_assert(std::is_standard_layout_v<CPointCurvatures> &&
                  sizeof(CPointCurvatures) == sizeof(int) + 8 * sizeof(float));
    py::list fields;
    fields.append(py::make_tuple("method", "i4"));
    for (char const * name : {"minimum", "maximum"})
        fields.append(py::make_tuple(name, "f4"));
    for (char const * name : {"normal", "direction"})
        fields.append(py::make_tuple(name, "f4", 3));
    auto owner = std::make_unique<std::vector<CPointCurvatures>>(std::move(found));
    void const * const data = owner->data();
    py::capsule const capsule(owner.get(),
                              [](void * kept) { delete static_cast<std::vector<CPointCurvatures> *>(kept); });
    owner.release();
    return py::array(py::dtype::from_args(fields), {py::ssize_t{n}}, {}, data, capsule);
}

} // namespace

void bindSurfaceAnalysis(py::module_ & module)
{
    module.def("estimate_normals", &estimateNormals, py::arg("points"), py::arg("count"), py::arg("radius"),
               py::arg("orientation"), py::arg("viewpoint"), py::arg("threads"), py::arg("callback"));
    module.def("estimate_curvatures", &estimateCurvatures, py::arg("points"), py::arg("normals"),
               py::arg("count"), py::arg("radius"), py::arg("threads"), py::arg("callback"));
}

} // namespace qz_python
