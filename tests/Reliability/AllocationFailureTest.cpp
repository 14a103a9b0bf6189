// SPDX-License-Identifier: Apache-2.0
// Every entry of the library while the memory runs short, at each allocation in turn: of one allocation
// alone, as for something large, and of all from there on. Out comes std::bad_alloc, or what the entry
// documents in its place, or the right result where it could go on; nothing leaks, and the next call is as
// good as ever.
#include <QZmath/Backend/DirectSolver.h>
#include <QZmath/Files/Files.h>
#include <QZmath/QZmath.h>

#include <BlockProcessor/BlockClients.h>
#include <QZsys/TaskSupport.h>
#include <support/Allocations.h>
#include <support/Mesh.h>
#include <support/SampledClouds.h>
#include <support/SolverSystems.h>
#include <support/TestFolder.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace
{

using REmath::Point3D;
using REmath::Point3D_d;

// Stands for all bits of a result (Fowler, Noll, Vo).
class Digest
{
public:
    template <class... Parts>
    static std::uint64_t of(Parts const &... parts)
    {
        Digest digest;
        (digest.add(parts), ...);
        return digest.m_value;
    }
    void add(void const * bytes, std::size_t length)
    {
        for (std::size_t i = 0; i < length; ++i)
            m_value = (m_value ^ static_cast<unsigned char const *>(bytes)[i]) * 0x100000001b3u;
    }
    template <class Number>
    std::enable_if_t<std::is_arithmetic_v<Number>> add(Number number)
    {
        add(&number, sizeof(number));
    }
    void add(Point3D const & point) { add(point.asArray(), 3 * sizeof(float)); }
    void add(Point3D_d const & point) { add(point.asArray(), 3 * sizeof(double)); }
    template <class Elements>
    auto add(Elements const & elements) -> decltype(elements.begin(), void())
    {
        for (auto const & element : elements)
            add(element);
    }
    void add(QZmath::TriangleMesh const & mesh)
    {
        add(of(mesh.positions, mesh.normals, mesh.colors, mesh.density, mesh.triangles));
    }
    std::uint64_t value() const { return m_value; }

private:
    std::uint64_t m_value = 0xcbf29ce484222325u;
};

struct Entry
{
    char const * name;
    int threads;
    // Gives the digest of the result; a documented report of short memory is thrown as std::bad_alloc.
    std::function<std::uint64_t()> run;
};

#ifdef QZ_SLOW_TESTS
long const st_dense = 400, st_spread = 400, st_coldStep = 30;
int const st_side = 16;
#else
long const st_dense = 30, st_spread = 30, st_coldStep = 2;
int const st_side = 12;
#endif

// Every number up to `st_dense`, then as many as that spread evenly over the rest.
std::vector<long> numbersToTry(long total)
{
    std::vector<long> numbers;
    for (long number = 1; number <= std::min(total, st_dense); ++number)
        numbers.push_back(number);
    long const rest = total - st_dense;
    for (long i = 0; i < std::min(st_spread, rest); ++i)
        numbers.push_back(st_dense + 1 + i * rest / std::min(st_spread, rest));
    return numbers;
}

class AllocationFailure : public testing::TestWithParam<Entry>
{
protected:
    // Throws what the entry throws.
    std::uint64_t runOnce(long number, bool isLasting)
    {
        qz_test::ShortMemory::begin(number, isLasting);
        struct End
        {
            long & seen;
            ~End() { seen = qz_test::ShortMemory::end(); }
        } const end{m_seen};
        return GetParam().run();
    }

    long m_seen = 0; // allocations of the last run
};

// The first call of a process also makes what stays: threads, tables, memory of the kernels.
TEST_P(AllocationFailure, FirstCallSurvives)
{
    enum Outcome
    {
        failed,
        unharmed,
        wentOn,
        wrong
    };
    for (bool const isLasting : {false, true}) {
        int status = 0;
        for (long number = 1; WEXITSTATUS(status) != unharmed; number += 1 + number / st_coldStep) {
            pid_t const child = fork();
            if (child == 0) {
                alarm(60);
                CVescaThreadingTasksHelper::setNumOfPhisicalThread(GetParam().threads);
                try {
                    Outcome outcome = failed;
                    std::uint64_t digest = 0;
                    try {
                        digest = runOnce(number, isLasting);
                        outcome = m_seen < number ? unharmed : wentOn;
                    } catch (std::bad_alloc const &) {
                    }
                    bool const isRight = runOnce(-1, false) == digest || outcome == failed;
                    _exit(isRight ? outcome : wrong);
                } catch (...) {
                    _exit(wrong);
                }
            }
            ASSERT_EQ(waitpid(child, &status, 0), child);
            ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != wrong)
                << (isLasting ? "from " : "only ") << number << ": " << status;
        }
    }
}

TEST_P(AllocationFailure, EveryEntrySurvives)
{
    CVescaThreadingTasksHelper::setNumOfPhisicalThread(GetParam().threads);
    std::uint64_t const expected = runOnce(-1, false);
    ASSERT_EQ(runOnce(-1, false), expected);
    long const total = m_seen;
    bool isLasting = false;
    int failures = 0;
    // Gives the blocks that a failing run leaves behind.
    auto const blocksKept = [&](long number) {
        SCOPED_TRACE((isLasting ? "from " : "only ") + std::to_string(number) + " of " +
                     std::to_string(total));
        long const before = qz_test::ShortMemory::liveBlocks();
        try {
            EXPECT_EQ(runOnce(number, isLasting), expected);
        } catch (std::bad_alloc const &) {
            ++failures;
        } catch (std::exception const & error) {
            ADD_FAILURE() << error.what();
        }
        return qz_test::ShortMemory::liveBlocks() - before;
    };
    for (bool const lasting : {false, true}) {
        isLasting = lasting;
        long keptByThreads = 0;
        for (long const number : numbersToTry(total)) {
            long const kept = blocksKept(number);
            if (GetParam().threads > 1) {
                keptByThreads += kept;
            } else {
                EXPECT_EQ(kept, 0) << number;
            }
            if (number % 5 == 0) {
                ASSERT_EQ(runOnce(-1, false), expected) << number;
            }
        }
        EXPECT_LE(keptByThreads, 40); // they keep something of their own, but not for each run
        ASSERT_EQ(runOnce(-1, false), expected);
    }
    EXPECT_GT(failures, 0);
    CVescaThreadingTasksHelper::setNumOfPhisicalThread(0);
}

std::vector<Point3D_d> noisyPoints(std::function<Point3D_d(double)> const & place)
{
    std::mt19937 random(3);
    std::vector<Point3D_d> points;
    for (int i = 0; i < 60; ++i) {
        auto const noise = [&] { return 1e-3 * double(random() % 1000) - 0.5; };
        double const scale = i % 9 == 0 ? 1.0 : 0.01;
        points.push_back(place(i / 60.0) + Point3D_d(noise(), noise(), noise()) * scale);
    }
    return points;
}
std::vector<Point3D_d> const g_line = noisyPoints([](double t) { return Point3D_d(9 * t, 2 * t, 1); });
std::vector<Point3D_d> const g_circle =
    noisyPoints([](double t) { return Point3D_d(5 * std::cos(6 * t), 5 * std::sin(6 * t), 1); });

std::vector<Point3D> single(std::vector<Point3D_d> const & points)
{
    std::vector<Point3D> result;
    for (Point3D_d const & point : points)
        result.emplace_back(float(point.x()), float(point.y()), float(point.z()));
    return result;
}

Entry triangulator(char const * name, int threads, int solver, bool isAccelerated, bool isRefined,
                   bool isDensityVariable = false)
{
    return {name, threads, [=] {
                static PointCloudSamples const samples = qz_test::cloudOf("spiral", 150);
                VolTr::CVolTriangulationParams params;
                params.setOctreeDepth(3);
                params.setPrefferedSolver(solver);
                params.setAccelerated(isAccelerated);
                params.setRefine(isRefined);
                params.setCorrectField(isRefined);
                params.setEstimateResultNormals(true);
                params.setVariableDensity(isDensityVariable);
                qz_test::MeshTarget target;
                VolTr::CVolumetricTriangulator(&target, &samples, &params, nullptr).run();
                qz_test::Mesh const & mesh = target.mesh();
                return Digest::of(mesh.vertices, mesh.normals, mesh.triangles);
            }};
}

std::uint64_t reconstructWhole()
{
    struct Cloud
    {
        std::vector<float> positions;
        std::vector<std::uint8_t> colors;
        Cloud()
        {
            for (auto const & point : qz_test::cloudOf("spiral", 400).points) {
                if (point[2] > 0.8f || (point[0] > 0.9f)) // a large and a small gap
                    continue;
                positions.insert(positions.end(), point.begin(), point.end());
                colors.insert(colors.end(), {std::uint8_t(100 * point[0] + 100), 7, 9});
            }
            positions.insert(positions.end(), {5.0f, 5.0f, 5.0f});
            colors.insert(colors.end(), {1, 2, 3});
        }
    };
    static Cloud const cloud;
    QZmath::PointCloudView view;
    view.size = cloud.positions.size() / 3;
    view.positions = cloud.positions.data();
    view.colors = cloud.colors.data();
    QZmath::ReconstructionOptions options;
    options.depth = 4;
    options.boundary = QZmath::Boundary::closed;
    options.outlierRemoval = 3;
    options.simplifyError = 0.3;
    options.vertexDensity = true;
    QZmath::ReconstructionReport report;
    QZmath::TriangleMesh const mesh = reconstruct(view, options, &report);
    return Digest::of(mesh, report.holesClosed, report.gapsFaired, report.outliersRemoved, report.summary());
}

// Each solver that there is, once, for a system of `size` vertices.
template <class T>
std::vector<std::unique_ptr<REmath::IVertexPosLinearSystem<T>>> everySolver(int size)
{
    using namespace REmath;
    using Csr = CCSRSstorage<T>;
    std::vector<std::unique_ptr<IVertexPosLinearSystem<T>>> result;
    result.push_back(std::make_unique<CLinSysSolverMKL<T>>());
    result.push_back(std::make_unique<CLinSysSolverCompose<T, Csr, CLinSysSolverCoreMkl<T>>>());
    result.push_back(std::make_unique<CSparseLinSysSolver<T>>());
    result.push_back(std::make_unique<CSparseStoreSparseLinSysSolver<T>>());
    result.push_back(std::make_unique<CLinSysSolverCompose<T, Csr, CLinSysSolverSparseDss<T>>>());
    result.push_back(std::make_unique<CLinSysSolverCompose<T, Csr, CLinSysSolverCoreBicgstab<T>>>());
    result.push_back(std::make_unique<CSparseStoreBicgstabLinSysSolver<T>>(3, T(1e-6), 1000));
    result.push_back(
        std::make_unique<CLinSysSolverSpaceDecomposer<T>>(std::vector<int>{size / 2}, T(1e-6), 1000));
    return result;
}

template <class T>
std::uint64_t solveWithAll()
{
    static std::mt19937 random(5);
    static testSupport::DenseMatrix const matrix = testSupport::randomSparse(24, 4.0, true, 1.4, random);
    static std::vector<double> const right = testSupport::randomVector(24, random);
    Digest digest;
    for (bool const isDefinite : {false, true})
        for (auto const & solver : everySolver<T>(24)) {
            solver->setSymmetric(isDefinite);
            solver->setPositiveDefinite(isDefinite);
            testSupport::stateSystem<T>(*solver, matrix, right);
            bool succeeded = false;
            auto const solution = testSupport::solveWhole<T>(*solver, 2, succeeded);
            if (!succeeded && solver->lastFailure() == REmath::LinSysFailure::noMemory)
                throw std::bad_alloc();
            digest.add(Digest::of(succeeded, solution[0].values, solution[1].values));
        }
    return digest.value();
}

// A lattice large enough for an order by dissection and for a factorisation on threads.
Entry directSolver(char const * name, int threads, int side, bool isDefinite)
{
    testSupport::CompressedMatrix const matrix = testSupport::gridOperator(side, 1, 0.1, 1);
    std::vector<double> const right(std::size_t(matrix.size), 1.0);
    return {name, threads, [=] {
                QzBackend::CDirectSolver solver(QzBackend::CDirectSolver::Structure::symmetricUpper,
                                                isDefinite
                                                    ? QzBackend::CDirectSolver::Definiteness::positiveDefinite
                                                    : QzBackend::CDirectSolver::Definiteness::indefinite);
                std::vector<double> solution(right.size());
                bool const succeeded =
                    solver.defineStructure(matrix.size, matrix.rowIndex.data(), matrix.columns.data(),
                                           matrix.nonZeros(), matrix.indexBase) &&
                    solver.reorder(nullptr) && solver.factor(matrix.values.data(), nullptr) &&
                    solver.solve(right.data(), 1, solution.data());
                return Digest::of(succeeded, solution);
            }};
}

std::uint64_t fitAll()
{
    Digest digest;
    Point3D_d a, b, normal;
    double numbers[8] = {}, radius = 0;
    auto const add = [&](bool found) {
        digest.add(Digest::of(found, a, b, normal, radius, std::vector(numbers, numbers + 8)));
    };
    add(FitLineToPointSet(g_line, a, b));
    add(FitLineToPointSetRobust(g_line, a, b));
    add(FitLineToPointSetThroughPointRobust(g_line, g_line[5], b));
    add(FitPlaneToPointSet(g_circle, numbers, numbers + 4));
    add(FitCircleToPointSet(g_circle, a, normal, radius));
    add(FitCircleToPointSetRobust(g_circle, a, normal, radius));
    std::vector<Point3D_d> const fixed = {g_circle[3], g_circle[20]}, one = {g_circle[3]};
    std::vector<Point3D_d> const dirs = {Point3D_d(0, 1, 0), Point3D_d(1, 0, 0)};
    add(FitCircleToPointSetWithFixedPointsRobust(g_circle, one, a, normal, radius));
    add(FitCircleToPointSetWithFixedPointsRobust(g_circle, fixed, a, normal, radius));
    add(FitCircleByPointsWithDirs(g_circle, one, dirs, a, normal, radius));
    add(FitCircleByPointsWithDirs(g_circle, fixed, dirs, a, normal, radius));
    add(RecognizePlaneSelectionFree(single(g_circle), Point3D(0, 0, 1), a, normal));
    for (int constraint = PlaneFitFree; constraint <= PlaneFitAngleToAxis; ++constraint) {
        double maxError = 0, meanError = 0, limits[4] = {};
        add(RecognizePlaneSelectionConstrained(single(g_circle), Point3D(0, 0, 1), constraint, 0.3, true, 0.5,
                                               g_circle[3], Point3D_d(0, 1, 2), a, normal, maxError,
                                               meanError, b, b, limits, limits + 2));
    }
    return digest.value();
}

std::uint64_t fitByConsensus()
{
    REmath::LineConsensus const line = REmath::findLine(g_line);
    REmath::PlaneConsensus const plane = REmath::findPlane(g_circle);
    REmath::CircleConsensus const circle = REmath::findCircle(g_circle);
    return Digest::of(line.inliers, line.origin, plane.inliers, plane.normal, circle.inliers, circle.radius);
}

std::uint64_t fitPolylines()
{
    static std::vector<std::vector<Point3D_d>> const segments = [] {
        std::vector<std::vector<Point3D_d>> result(3);
        for (int i = 0; i <= 30; ++i) {
            double const t = i / 30.0;
            result[0].emplace_back(10 * t, 0, 0);
            result[1].emplace_back(10 + 5 * std::sin(2 * t), 5 - 5 * std::cos(2 * t), 0);
        }
        Point3D_d const start = result[1].back();
        for (int i = 0; i <= 30; ++i)
            result[2].push_back(start + Point3D_d(std::cos(2.0), std::sin(2.0), 0) * (0.3 * i));
        return result;
    }();
    CPolylineFitCurve chain;
    std::vector<double> curves, boundaries;
    Digest digest;
    digest.add(chain.fitPolyline(segments, curves, boundaries));
    digest.add(chain.fitPolyline(curves, boundaries));
    auto split = segments;
    split.insert(split.begin() + 1, {segments[0].begin() + 15, segments[0].end()});
    split[0].resize(16);
    chain.addSegment(split, 1, curves, boundaries);
    chain.deleteSegment(1, curves, boundaries);
    digest.add(Digest::of(curves, boundaries));
    std::vector<int> const ends = {0, 59};
    CPolylineSmoothParams params;
    params.SetPtrFixedPtIdx(&ends);
    std::vector<Point3D_d> smooth = g_circle;
    digest.add(smoothPolylineWithFixedPoints(smooth, params));
    std::vector<std::vector<Point3D_d>> parts;
    int corners = 0;
    digest.add(SplitContourByCorners(&parts, g_circle, 0.5, true, &corners));
    std::vector<float> angles = {0.1f, 3.0f, 2.0f, 5.0f};
    digest.add(ArrangePointsOnCircle(angles, 1, 4));
    digest.add(Digest::of(smooth, parts, angles));
    return digest.value();
}

class Valley : public REmath::Functor7<int, int, int, double const *, double *, double *, int, int>
{
    int operator()(int, int, double const * x, double * f, double * j, int stride, int iflag) const override
    {
        if (iflag == 1) {
            f[0] = 10 * (x[1] - x[0] * x[0]);
            f[1] = 1 - x[0];
            return 0;
        }
        double const slopes[] = {-20 * x[0], -1, 10, 0};
        for (int i = 0; i < 4; ++i)
            j[i / 2 * stride + i % 2] = slopes[i];
        return 0;
    }
};

std::uint64_t optimise()
{
    double x[2] = {-1.2, 1}, f[2];
    Digest digest;
    digest.add(REmath::lmder1_adapter(Valley(), 2, 2, x, f, 1e-12));
    struct Distance : REmath::CMinMaxTask::Function
    {
        double operator()(Point3D_d const & point) const override { return -point.length(); }
    } const distance;
    REmath::CMinMaxTask task;
    task.AddFunctor(&distance);
    task.SetInitApprox(Point3D_d(1, 1, 1));
    task.SetLimitMin(Point3D_d(-2, -2, -2));
    task.SetLimitMax(Point3D_d(2, 2, 2));
    Point3D_d best;
    REmath::CMinMaxOptimizer(task, REmath::CMinMaxParams()).Run(best);
    // The nearest point of x + y >= 1 to the origin.
    int n = 2, m = 1, me = 0, ld = 2, lda = 1, mostIterations = 0, warm = 0, lwork = -1, liwork = -1;
    double h[] = {1, 0, 0, 1}, c[2] = {}, a[] = {1, 1}, b[] = {1}, low[] = {-9, -9}, high[] = {9, 9}, y[2],
           lambda[1], zl[2], zu[2], value = 0, tolerance = 0, violation = 0, needed = 0;
    int active[3], activeCount = 0, iterations = 0, status = 0, badIndex = 0, neededIntegers = 0;
    auto const call = [&](double * numbers, int * integers) {
        QLPoptimize(&n, &m, &me, &ld, &lda, &mostIterations, &warm, h, c, a, b, low, high, y, lambda, zl, zu,
                    &value, &tolerance, &violation, active, &activeCount, &iterations, &status, &badIndex,
                    nullptr, numbers, &lwork, integers, &liwork, nullptr, nullptr);
    };
    call(&needed, &neededIntegers);
    lwork = int(needed);
    liwork = neededIntegers;
    std::vector<double> work(static_cast<std::size_t>(lwork));
    std::vector<int> integers(static_cast<std::size_t>(liwork));
    call(work.data(), integers.data());
    digest.add(Digest::of(x[0], x[1], best, y[0], y[1], status));
    return digest.value();
}

std::uint64_t analyseCloud()
{
    static std::vector<Point3D> const points = [] {
        std::vector<Point3D> result;
        for (auto const & point : qz_test::cloudOf("spiral", 200).points)
            result.emplace_back(point.data());
        return result;
    }();
    int const n = int(points.size());
    std::vector<Point3D> normals(points.size());
    std::vector<CPointCurvatures> curvatures(points.size());
    std::vector<std::uint8_t> marks(points.size());
    Digest digest;
    digest.add(EstimateNormals(n, points.data(), {}, normals.data()));
    std::fill_n(normals.begin(), 20, Point3D(0, 0, 0));
    digest.add(CompleteNormals(n, points.data(), 8, normals.data()));
    digest.add(EstimateCurvatures(n, points.data(), {}, normals.data(), curvatures.data()));
    digest.add(FindOutliers(n, points.data(), 8, 1.0, marks.data()));
    digest.add(FindRepeatedPoints(n, points.data(), marks.data()));
    digest.add(Digest::of(MeasureCloud(n, points.data(), normals.data()).spacing, normals));
    for (CPointCurvatures const & curvature : curvatures)
        digest.add(curvature.maxCurvature);
    return digest.value();
}

// A component that holds bytes.
class Blob : public VsF::IComponentFilter
{
public:
    Blob(IVescaBinaryStream & stream, std::vector<char> & data) : m_stream(stream), m_data(data) {}

private:
    std::int64_t OnSave() override
    {
        m_stream.writeData(m_data.size(), m_data.data());
        return std::int64_t(m_data.size());
    }
    std::int64_t OnLoad(VsF::IDeltaStateLogger &) override
    {
        m_data.assign(1000, 0);
        m_stream.readData(1000, m_data.data());
        return 1000;
    }
    std::wstring OnGetComponentName() const override { return L"a name that takes memory of its own"; }
    std::string OnGetBlockMark() const override { return "BytesWithALongName"; }
    int OnGetVersion() const override { return 1; }
    IVescaBinaryStream & OnGetStream() override { return m_stream; }

    IVescaBinaryStream & m_stream;
    std::vector<char> & m_data;
};

std::uint64_t persist()
{
    struct Logger : VsF::IDeltaStateLogger
    {
        VsF::DocumentNewObjectProcessStatus OnProcessNewObject(VsF::INewObjEvent &) override
        {
            return VsF::newObjectAccepted;
        }
        void OnFinalizeLoading() override {}
    } logger;
    std::FILE * const opened = std::tmpfile();
    if (opened == nullptr)
        throw std::bad_alloc();
    struct Closer
    {
        void operator()(std::FILE * file) const { std::fclose(file); }
    };
    std::unique_ptr<std::FILE, Closer> const file(opened);
    static std::array<char, 1 << 16> buffer; // so that the C library takes none while the run goes on
    std::setvbuf(file.get(), buffer.data(), _IOFBF, buffer.size());
    CFileBinaryStream stream(file.get());
    std::vector<char> saved(1000, 'x'), loaded;
    Digest digest;
    for (bool const isSaving : {true, false}) {
        std::rewind(file.get());
        for (int copy = 0; copy < 2; ++copy) {
            std::vector<char> & data = isSaving ? saved : loaded;
            std::wstring warning = L"a warning that takes memory"; // before the filter, which it could strand
            VsF::CInnerHeaderWrapper wrapper(new Blob(stream, data), nullptr, std::move(warning));
            digest.add(isSaving ? wrapper.Save() : wrapper.Load(logger));
        }
    }
    REmath::CSparseVectorTmpl<double> sparse, again;
    for (int i = 0; i < 100; ++i)
        sparse.SetElementNoIdxSearch(3 * i, i + 0.5);
    std::rewind(file.get());
    digest.add(sparse.SaveToFile(file.get()));
    std::rewind(file.get());
    digest.add(again.LoadFromFile(file.get()));
    digest.add(Digest::of(loaded, again[9], again.GetNOfNonZeroElements()));

    std::unique_ptr<VescaExtVec::ExternVectorVoidInterface> const vector(
        VescaExtVec::CreateExternVectorVoid(24));
    vector->resize(50, "a fill of twenty-four by");
    VescaExtVec::ElementHandle held = nullptr, other = nullptr;
    *static_cast<char *>(vector->lockElement(7, &held)) = 'A';
    digest.add(*static_cast<char *>(vector->lockElement(8, &other)));
    vector->releaseElement(true, &held);
    vector->resize(8); // under the hold
    vector->releaseElement(false, &other);
    digest.add(*static_cast<char *>(vector->lockElement(7, &held)));
    vector->releaseElement(false, &held);

    struct Member : CfpHeapMem
    {};
    std::vector<Member> members(64);
    CfpHeap heap;
    for (std::size_t i = 0; i < members.size(); ++i)
        heap.insert(&members[i], double(i * 7 % 64));
    while (CfpHeapMem * const member = heap.extract())
        digest.add(member->getHeapKey());
    return digest.value();
}

struct Seed
{
    std::string bytes;
    QZmath::PointFormat format;
};
std::vector<Seed> const g_seeds = [] {
    std::vector<Seed> result;
    std::pair<char const *, QZmath::PointFormat> const folders[] = {
        {"ply_reader", QZmath::PointFormat::ply},
        {"obj_reader", QZmath::PointFormat::obj},
        {"text_reader", QZmath::PointFormat::text},
        {"pcd_reader", QZmath::PointFormat::pcd},
        {"las_reader", QZmath::PointFormat::las}};
    for (auto const & [folder, format] : folders)
        for (auto const & file : std::filesystem::directory_iterator(std::string(QZ_CORPUS "/") + folder)) {
            std::ifstream stream(file.path(), std::ios::binary);
            result.push_back({{std::istreambuf_iterator<char>(stream), {}}, format});
        }
    return result;
}();

std::uint64_t readFiles()
{
    Digest digest;
    for (Seed const & seed : g_seeds) {
        QZmath::ReadOptions options;
        options.format = seed.format;
        try {
            QZmath::PointCloud const cloud =
                QZmath::readPointsFromMemory(seed.bytes.data(), seed.bytes.size(), options);
            digest.add(Digest::of(cloud.positions, cloud.positions64, cloud.normals, cloud.colors));
        } catch (QZmath::InputError const & error) {
            digest.add(std::string_view(error.what()));
        }
    }
    return digest.value();
}

std::uint64_t writeAndReadFiles()
{
    static bool const isInMemory = qz_test::keepTestFoldersInMemory();
    static qz_test::TestFolder const folder;
    static QZmath::TriangleMesh const mesh = [] {
        QZmath::TriangleMesh result;
        result.positions = result.normals = {0, 0, 0, 1, 0, 0, 0, 1, 0};
        result.colors = {1, 2, 3, 4, 5, 6, 7, 8, 9};
        result.triangles = {0, 1, 2};
        return result;
    }();
    Digest digest;
    digest.add(isInMemory);
    for (char const * const name : {"mesh.ply", "mesh.obj", "mesh.stl", "mesh.gltf", "mesh.glb"}) {
        QZmath::writeMesh(mesh, folder.path(name));
        digest.add(QZmath::readMesh(folder.path(name)));
    }
    std::string_view const torn = R"({"asset": {"version": "2.0"}, "nodes": [{"children": [1, [2, [3)";
    try {
        digest.add(QZmath::readMeshFromMemory(torn.data(), torn.size(), QZmath::MeshFormat::gltf));
    } catch (QZmath::InputError const & error) {
        digest.add(std::string_view(error.what()));
    }
    QZmath::PointCloudView view;
    view.size = 3;
    view.positions = view.normals = mesh.positions.data();
    view.colors = mesh.colors.data();
    for (char const * const name : {"cloud.ply", "cloud.obj", "cloud.xyz", "cloud.csv"}) {
        QZmath::writePoints(view, folder.path(name));
        QZmath::PointCloud const cloud = QZmath::readPoints(folder.path(name));
        digest.add(Digest::of(cloud.positions, cloud.normals, cloud.colors));
    }
    qz_test::ShortMemory::end();
    for (std::string const & name : folder.files()) // a run that fails leaves nothing beside them
        digest.add(name);
    return digest.value();
}

Entry blockProcessor(char const * name, int threads)
{
    return {name, threads, [=] {
                Client client(6);
                client.blocks.areDependent = [](int a, int b) { return std::abs(a - b) == 1; };
                client.SetNParralelThreads(threads);
                client.SetExtractBlock(true);
                CProgressCounter progress;
                client.SetProgressCounter(&progress);
                int const code = client.Run();
                // Short memory on the calling thread, and on another one or for one.
                if (code == 1 || (code == QZ_STATUS_UNEXPECTED_ERR && threads > 1))
                    throw std::bad_alloc();
                return Digest::of(code, client.values);
            }};
}

std::uint64_t runTasks()
{
    std::array<double, 5> results{};
    std::deque<FunctionTask> tasks;
    for (std::size_t i = 0; i < results.size(); ++i)
        tasks.emplace_back(
            [&results, i] { results[i] = std::vector<double>(100 + i, 0.5).back() + double(i); });
    perform(tasks);
    try {
        IVescaThreadingFactory & factory = CVescaSingletonT<IVescaThreadingFactory>::Instance();
        std::unique_ptr<IVescaBlockingEvent> const event(factory.makeBlockingEvent());
        IVescaMutexPtr const mutex(factory.makeMutex());
        bool hasRun = false;
        FunctionTask task([&] {
            CVescaMutexLock const lock(mutex);
            hasRun = true;
            event->set();
        });
        std::unique_ptr<IVescaThread> const thread(factory.makeThread());
        thread->setTask(&task);
        thread->start();
        event->wait(-1);
        thread->wait(-1);
        CProgressCounter progress;
        VsPCnt::CMultiPhaseManager phases(&progress);
        phases.RegisterPhase("a phase with a name of some length", 1.0);
        phases.StartPhase("a phase with a name of some length");
        phases.FinishCurrentPhase();
        return Digest::of(results, hasRun, progress.getPosFloat());
    } catch (CVescaException const & error) {
        if (std::string_view(error.what()) == "Cannot start a thread")
            throw std::bad_alloc();
        throw;
    }
}

Entry const st_entries[] = {
    triangulator("exact", 1, 0, false, false),
    triangulator("exact_iterative", 1, 3, false, false),
    triangulator("exact_direct", 1, 1, false, false),
    triangulator("exact_decomposing", 1, 4, false, false),
    triangulator("exact_density", 1, 0, false, false, true),
    triangulator("exact_threads", 3, 1, false, true),
    triangulator("accelerated", 1, 0, true, false),
    triangulator("accelerated_refined", 1, 0, true, true),
    triangulator("accelerated_threads", 3, 0, true, true),
    {"reconstruct", 1, reconstructWhole},
    {"reconstruct_threads", 3, reconstructWhole},
    {"linear_systems_float", 1, solveWithAll<float>},
    {"linear_systems_double", 1, solveWithAll<double>},
    directSolver("cholesky", 1, 9, true),
    directSolver("cholesky_threads", 3, st_side, true),
    directSolver("lu", 1, 9, false),
    {"fits", 1, fitAll},
    {"consensus", 1, fitByConsensus},
    {"polylines", 1, fitPolylines},
    {"optimisers", 1, optimise},
    {"cloud_analysis", 1, analyseCloud},
    {"cloud_analysis_threads", 3, analyseCloud},
    {"persistence", 1, persist},
    {"point_readers", 1, readFiles},
    {"files", 1, writeAndReadFiles},
    blockProcessor("blocks", 1),
    blockProcessor("blocks_threads", 3),
    {"tasks", 3, runTasks},
};

INSTANTIATE_TEST_SUITE_P(, AllocationFailure, testing::ValuesIn(st_entries),
                         [](auto const & entry) { return std::string(entry.param.name); });

} // namespace
