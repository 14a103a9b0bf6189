// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Reconstruction/Reconstruction.h>
#include <QZsys/Exceptions.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include <apps/sampling/SampleShapes.h>
#include <support/MeasureMemory.h>
#include <support/Recorders.h>

// Many small reconstructions at the same time, of which some are cancelled anywhere. As a slow test 10,000 of
// them or what nine minutes allow; else enough for the threads to get into each other's way.

namespace
{

#ifdef QZ_SLOW_TESTS
constexpr int allJobs = 10000, jobsPerRound = 1000;
#else
constexpr int allJobs = 144, jobsPerRound = 48;
#endif
constexpr int threadCount = 8;
constexpr std::chrono::minutes longest{9};
constexpr long toleratedBytes = 100000; // of what the threads of the loops keep for themselves

struct Input
{
    qz_sampling::Cloud cloud;
    QZmath::PointCloudView view;
    QZmath::ReconstructionOptions options;
};

// Every combination of a shape and a way through the call.
std::vector<Input> makeInputs()
{
    std::vector<Input> inputs;
    for (char const * shape : {"sphere", "torus", "sheet", "block"}) {
        for (int way = 0; way < 5; ++way) {
            Input & input = inputs.emplace_back();
            qz_sampling::SamplingOptions sampling;
            sampling.pointNumber = 250 + 50 * std::size_t(way);
            sampling.noise = 0.002 * way;
            input.cloud = sampleCloud(*qz_sampling::makeShape(shape), sampling);
            QZmath::ReconstructionOptions & options = input.options;
            options.depth = way == 1 ? 3 : 4;
            options.core.setAccelerated(way != 1);
            options.core.setCorrectField(way == 2);
            options.refine = way != 3;
            options.vertexDensity = way == 3;
            options.simplifyError = way == 3 ? 0.2 : 0.0;
            options.outlierRemoval = way == 2 ? 3.0 : 0.0;
            options.normals = way == 4 ? QZmath::Normals::estimate : QZmath::Normals::automatic;
        }
    }
    for (Input & input : inputs) {
        input.view.size = input.cloud.size();
        input.view.positions = input.cloud.positions.data();
        input.view.normals = input.cloud.normals.data();
    }
    return inputs;
}

bool haveSameBits(QZmath::TriangleMesh const & a, QZmath::TriangleMesh const & b)
{
    return a.origin == b.origin && a.positions == b.positions && a.normals == b.normals &&
           a.density == b.density && a.triangles == b.triangles;
}

// Without what the allocator keeps of freed memory, in as many pools as there are threads at the same time.
long residentBytes()
{
#ifdef QZ_COUNTS_MEMORY
    malloc_trim(0);
#endif
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

} // namespace

TEST(Load, ConcurrentCallsAndCancelsChangeNoBitAndLeaveNothing)
{
    std::vector<Input> const inputs = makeInputs();
    std::vector<QZmath::TriangleMesh> expected;
    for (Input const & input : inputs) {
        expected.push_back(QZmath::reconstruct(input.view, input.options));
        ASSERT_GT(expected.back().triangleCount(), 100U);
    }
    std::atomic<int> next{0}, cancelled{0}, different{0}, failed{0};
    auto const work = [&](int end) {
        for (int job; (job = next++) < end;) {
            std::mt19937 random(unsigned(job) + 1);
            std::size_t const which = random() % inputs.size();
            QZmath::ReconstructionOptions options = inputs[which].options;
            options.threads = 1 + int(random() % 3);
            qz_test::ProgressRecorder progress;
            if (random() % 3 == 0)
                progress.inPosition = [&progress, last = random() % 300] {
                    if (progress.positions.size() > last)
                        progress.interrupt();
                };
            try {
                QZmath::TriangleMesh const mesh =
                    QZmath::reconstruct(inputs[which].view, options, nullptr, &progress);
                different += haveSameBits(mesh, expected[which]) ? 0 : 1;
            } catch (CUserIntrException const &) {
                ++cancelled;
            } catch (std::exception const &) {
                ++failed;
            }
        }
    };
    auto const begin = std::chrono::steady_clock::now();
    long liveAfterFirst = 0, residentAfterFirst = 0, done = 0;
    for (int end = jobsPerRound; end <= allJobs && std::chrono::steady_clock::now() - begin < longest;
         end += jobsPerRound) {
        next = int(done);
        std::vector<std::thread> threads;
        for (int thread = 0; thread < threadCount; ++thread)
            threads.emplace_back(work, end);
        for (std::thread & thread : threads)
            thread.join();
        done = end;
        if (end == jobsPerRound) {
            liveAfterFirst = qz_test::allocatedBytes;
            residentAfterFirst = residentBytes();
        }
    }
    long const live = qz_test::allocatedBytes - liveAfterFirst,
               resident = residentBytes() - residentAfterFirst;
    RecordProperty("jobs", int(done));
    RecordProperty("cancelled", cancelled.load());
    RecordProperty("grownBytes", std::to_string(live));
    RecordProperty("grownResidentBytes", std::to_string(resident));
    EXPECT_EQ(different, 0);
    EXPECT_EQ(failed, 0);
    EXPECT_GT(cancelled, done / 10);
    EXPECT_LT(cancelled, done / 2);
    if (qz_test::isMemoryMeasured) {
        EXPECT_LT(live, toleratedBytes) << "of " << done << " calls";
        EXPECT_LT(resident, 64L << 20);
    }
}
