// SPDX-License-Identifier: Apache-2.0
#include <python/src/Arrays.h>
#include <python/src/CallProgress.h>
#include <python/src/Subsystems.h>

#include <QZmath/Fitting/CircleFitting.h>
#include <QZmath/Fitting/ConsensusFitting.h>
#include <QZmath/Fitting/LineFitting.h>
#include <QZmath/Fitting/MinMaxOptimizer.h>
#include <QZmath/Fitting/PlaneFitting.h>
#include <QZmath/Fitting/PolylineFitCurve.h>
#include <QZmath/Fitting/QuadraticProgram.h>

#include <pybind11/stl.h>

#include <algorithm>
#include <limits>

namespace qz_python
{

namespace
{

using REmath::Point3D_d;
using Points = std::vector<Point3D_d>;

// Origin and direction, or None. No fixed point is an array of (0, 3).
py::object fitLine(py::array const & points, bool isRobust, py::array const & through)
{
    Points const cloud = pointsOf(points, "points"), fixed = pointsOf(through, "through");
    Point3D_d origin, direction;
    bool found = false;
    {
        Released const released;
        if (!fixed.empty()) {
            origin = fixed[0];
            found = FitLineToPointSetThroughPointRobust(cloud, origin, direction);
        } else {
            found = isRobust ? FitLineToPointSetRobust(cloud, origin, direction)
                             : FitLineToPointSet(cloud, origin, direction);
        }
    }
    return found ? py::object(py::make_tuple(arrayOf(origin), arrayOf(direction))) : py::none();
}

// Origin and normal, or None.
py::object fitPlane(py::array const & points)
{
    Points const cloud = pointsOf(points, "points");
    double coefficients[4], center[3];
    bool found = false;
    {
        Released const released;
        found = FitPlaneToPointSet(cloud, coefficients, center);
    }
    if (!found)
        return py::none();
    return py::make_tuple(arrayOf({center[0], center[1], center[2]}),
                          arrayOf({coefficients[0], coefficients[1], coefficients[2]}));
}

// Centre, normal and radius, or None.
py::object fitCircle(py::array const & points, bool isRobust, py::array const & through,
                     py::array const & tangents)
{
    Points const cloud = pointsOf(points, "points"), fixed = pointsOf(through, "through"),
                 directions = pointsOf(tangents, "tangents");
    Point3D_d center, normal;
    double radius = 0;
    bool found = false;
    {
        Released const released;
        if (!directions.empty())
            found = FitCircleByPointsWithDirs(cloud, fixed, directions, center, normal, radius);
        else if (!fixed.empty())
            found = FitCircleToPointSetWithFixedPointsRobust(cloud, fixed, center, normal, radius);
        else
            found = isRobust ? FitCircleToPointSetRobust(cloud, center, normal, radius)
                             : FitCircleToPointSet(cloud, center, normal, radius);
    }
    return found ? py::object(py::make_tuple(arrayOf(center), arrayOf(normal), radius)) : py::none();
}

// What was found by `find`, with its report behind; or None.
template <class Found>
py::object consensus(py::array const & points, double inlierDistance, double confidence, int mostTrials,
                     std::uint64_t seed, Found (*find)(Points const &, REmath::ConsensusOptions const &),
                     py::tuple (*shape)(Found const &))
{
    Points const cloud = pointsOf(points, "points");
    REmath::ConsensusOptions options;
    options.inlierDistance = inlierDistance;
    options.confidence = confidence;
    options.mostTrials = mostTrials;
    options.seed = seed;
    Found found;
    {
        Released const released;
        found = find(cloud, options);
    }
    if (!found.found)
        return py::none();
    std::vector<std::int64_t> inliers(found.inliers.begin(), found.inliers.end());
    return py::make_tuple(shape(found), handOver(std::move(inliers), 0), found.rms, found.inlierDistance,
                          found.support, found.trials);
}

py::object findLine(py::array const & points, double inlierDistance, double confidence, int mostTrials,
                    std::uint64_t seed)
{
    return consensus<REmath::LineConsensus>(points, inlierDistance, confidence, mostTrials, seed,
                                            &REmath::findLine, [](REmath::LineConsensus const & line) {
                                                return py::make_tuple(arrayOf(line.origin),
                                                                      arrayOf(line.direction));
                                            });
}

py::object findPlane(py::array const & points, double inlierDistance, double confidence, int mostTrials,
                     std::uint64_t seed)
{
    return consensus<REmath::PlaneConsensus>(points, inlierDistance, confidence, mostTrials, seed,
                                             &REmath::findPlane, [](REmath::PlaneConsensus const & plane) {
                                                 return py::make_tuple(arrayOf(plane.origin),
                                                                       arrayOf(plane.normal));
                                             });
}

py::object findCircle(py::array const & points, double inlierDistance, double confidence, int mostTrials,
                      std::uint64_t seed)
{
    return consensus<REmath::CircleConsensus>(
        points, inlierDistance, confidence, mostTrials, seed, &REmath::findCircle,
        [](REmath::CircleConsensus const & circle) {
            return py::make_tuple(arrayOf(circle.center), arrayOf(circle.normal), circle.radius);
        });
}

// For each segment its type and parameters, for each boundary its condition and parameters; and whether the
// polyline is closed. What is not there is NaN.
py::tuple fitPolyline(py::list const & segments, double tolerance)
{
    std::vector<Points> cut;
    for (py::handle const segment : segments)
        cut.push_back(pointsOf(segment.cast<py::array>(), "a segment"));
    CPolylineFitCurve fit;
    fit.setFitTolerance(tolerance);
    double const none = std::numeric_limits<double>::quiet_NaN();
    std::vector<double> curves(7 * cut.size(), none), boundaries(6 * (cut.size() + 1), none);
    {
        Released const released;
        fit.fitPolyline(cut, curves, boundaries);
    }
    std::vector<int> types, conditions;
    for (int k = 0; k < static_cast<int>(cut.size()); ++k)
        types.push_back(fit.getCurveType(k));
    for (int k = 0; fit.getBndCondType(k) >= 0; ++k)
        conditions.push_back(fit.getBndCondType(k));
    curves.resize(7 * types.size(), none);
    boundaries.resize(6 * conditions.size(), none);
    return py::make_tuple(handOver(std::move(types), 0), handOver(std::move(curves), 7),
                          handOver(std::move(conditions), 0), handOver(std::move(boundaries), 6),
                          fit.isPolylineClosed());
}

// `h` is symmetric or its mean counts, so that the order of its elements does not matter; `a` comes
// transposed, rows of variables. Returns x, lambda, zl, zu, the objective, the violation, active flags,
// iterations, status and the constraint at fault.
py::tuple quadraticProgram(py::array const & h, py::array const & c, py::array const & aTransposed,
                           py::array const & b, int equalities, py::array const & lower,
                           py::array const & upper, py::array const & start, double tolerance,
                           int mostIterations)
{
    checkShape(c, "c", -1, 0);
    checkShape(b, "b", -1, 0);
    if (c.shape(0) < 1 || c.shape(0) > 20000 || b.shape(0) > std::numeric_limits<int>::max() / 16)
        throw py::value_error("there must be 1 to 20000 variables");
    int n = static_cast<int>(c.shape(0)), m = static_cast<int>(b.shape(0));
    auto const copyOf = [](py::array const & array, char const * name, py::ssize_t rows, py::ssize_t width) {
        double const * const numbers = numbersOf<double>(array, name, rows, width);
        return std::vector<double>(numbers, numbers + rows * std::max<py::ssize_t>(width, 1));
    };
    std::vector<double> hessian = copyOf(h, "h", n, n), gradient = copyOf(c, "c", n, 0),
                        rows = m > 0 ? copyOf(aTransposed, "a", n, m) : std::vector<double>(1),
                        sides = copyOf(b, "b", m, 0), low = copyOf(lower, "lower", n, 0),
                        high = copyOf(upper, "upper", n, 0), x = copyOf(start, "start", n, 0);
    sides.resize(std::max<std::size_t>(sides.size(), 1));
    auto const count = [](int number) { return static_cast<std::size_t>(number); };
    std::vector<double> lambda(count(std::max(m, 1))), zl(count(n)), zu(count(n));
    std::vector<int> active(count(m) + count(n));
    int ldh = n, lda = std::max(m, 1), warm = 0, activeNumber = 0, iterations = 0, status = 0, badIndex = 0,
        print = 0, reserved = 0, workSize = -1, indexSize = -1;
    double objective = 0, violation = 0, workNeeded = 0;
    int indexNeeded = 0;
    auto const call = [&](double * work, int * indices) {
        QLPoptimize(&n, &m, &equalities, &ldh, &lda, &mostIterations, &warm, hessian.data(), gradient.data(),
                    rows.data(), sides.data(), low.data(), high.data(), x.data(), lambda.data(), zl.data(),
                    zu.data(), &objective, &tolerance, &violation, active.data(), &activeNumber, &iterations,
                    &status, &badIndex, &print, work, &workSize, indices, &indexSize, &reserved, &reserved);
    };
    {
        Released const released;
        call(&workNeeded, &indexNeeded);
        if (status == 0) {
            std::vector<double> work(static_cast<std::size_t>(workNeeded));
            std::vector<int> indices(count(indexNeeded));
            workSize = static_cast<int>(workNeeded);
            indexSize = indexNeeded;
            call(work.data(), indices.data());
        }
    }
    lambda.resize(count(m));
    return py::make_tuple(handOver(std::move(x), 0), handOver(std::move(lambda), 0),
                          handOver(std::move(zl), 0), handOver(std::move(zu), 0), objective, violation,
                          handOver(std::move(active), 0), iterations, status, badIndex);
}

class PythonFunction final : public REmath::CMinMaxTask::Function
{
public:
    explicit PythonFunction(py::object function) : m_function(std::move(function)) {}
    double operator()(Point3D_d const & point) const override
    {
        if (PyErr_CheckSignals() != 0)
            throw py::error_already_set();
        return m_function(arrayOf(point)).cast<double>();
    }
    bool isBound() const override { return true; }

private:
    py::object m_function;
};

class PythonProjector final : public REmath::CMinMaxTask::IProjector
{
public:
    explicit PythonProjector(py::object function) : m_function(std::move(function)) {}
    void Project(Point3D_d & point) const override
    {
        point = placeOf(m_function(arrayOf(point)).cast<py::array>(), "the answer of the projector");
    }

private:
    py::object m_function;
};

// Holds the GIL: all the work is in the functions.
py::array_t<double> optimizeMinMax(py::list const & functions, py::array const & start,
                                   py::array const & lower, py::array const & upper,
                                   py::object const & projector, double tolerance, int mostSteps,
                                   int attempts)
{
    std::vector<std::unique_ptr<PythonFunction>> criteria;
    REmath::CMinMaxTask task;
    for (py::handle const function : functions) {
        criteria.push_back(std::make_unique<PythonFunction>(py::reinterpret_borrow<py::object>(function)));
        task.AddFunctor(criteria.back().get());
    }
    task.SetInitApprox(placeOf(start, "start"));
    task.SetLimitMin(placeOf(lower, "lower"));
    task.SetLimitMax(placeOf(upper, "upper"));
    PythonProjector const onto(projector);
    if (!projector.is_none())
        task.SetProjector(&onto);
    REmath::CMinMaxParams params;
    params.SetTolerance(tolerance);
    params.SetMaxIter(mostSteps);
    params.SetMaxGradientMoveAttempts(attempts);
    Point3D_d result;
    REmath::CMinMaxOptimizer(task, params).Run(result);
    return arrayOf(result);
}

} // namespace

void bindFitting(py::module_ & module)
{
    module.def("fit_line", &fitLine, py::arg("points"), py::arg("robust"), py::arg("through"));
    module.def("fit_plane", &fitPlane, py::arg("points"));
    module.def("fit_circle", &fitCircle, py::arg("points"), py::arg("robust"), py::arg("through"),
               py::arg("tangents"));
    for (auto const & [name, find] :
         {std::pair{"find_line", &findLine}, {"find_plane", &findPlane}, {"find_circle", &findCircle}})
        module.def(name, find, py::arg("points"), py::arg("inlier_distance"), py::arg("confidence"),
                   py::arg("most_trials"), py::arg("seed"));
    module.def("fit_polyline", &fitPolyline, py::arg("segments"), py::arg("tolerance"));
    module.def("quadratic_program", &quadraticProgram, py::arg("h"), py::arg("c"), py::arg("a_transposed"),
               py::arg("b"), py::arg("equalities"), py::arg("lower"), py::arg("upper"), py::arg("start"),
               py::arg("tolerance"), py::arg("most_iterations"));
    module.def("optimize_min_max", &optimizeMinMax, py::arg("functions"), py::arg("start"), py::arg("lower"),
               py::arg("upper"), py::arg("projector"), py::arg("tolerance"), py::arg("most_steps"),
               py::arg("attempts"));
}

} // namespace qz_python
