// SPDX-License-Identifier: Apache-2.0
#include <python/src/Arrays.h>
#include <python/src/CallProgress.h>
#include <python/src/Subsystems.h>

#include <apps/sampling/SampleShapes.h>

#include <pybind11/stl.h>

namespace qz_python
{

namespace
{

// Points, normals, and marks of the border or None.
py::tuple sample(std::string const & name, std::size_t number, double noise, double densityRatio,
                 std::uint64_t seed)
{
    std::unique_ptr<qz_sampling::Shape> const shape = qz_sampling::makeShape(name);
    if (!shape)
        throw py::value_error("there is no shape of this name");
    qz_sampling::SamplingOptions options;
    options.pointNumber = number;
    options.noise = noise;
    options.densityRatio = densityRatio;
    options.seed = seed;
    qz_sampling::Cloud cloud;
    CallProgress{py::none()}.run(
        0, [&](CProgressCounter &) { cloud = qz_sampling::sampleCloud(*shape, options); });
    return py::make_tuple(handOver(std::move(cloud.positions), 3), handOver(std::move(cloud.normals), 3),
                          handOverOrNone(std::move(cloud.boundaryMarks), 0));
}

} // namespace

void bindSamples(py::module_ & module)
{
    module.def("shape_names", &qz_sampling::shapeNames);
    module.def("sample", &sample, py::arg("shape"), py::arg("number"), py::arg("noise"),
               py::arg("density_ratio"), py::arg("seed"));
}

} // namespace qz_python
