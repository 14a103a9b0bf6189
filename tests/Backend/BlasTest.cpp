// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/Blas.h>

#include <cmath>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <random>
#include <thread>
#include <vector>

#include "support/SparseSystems.h"

namespace
{

using namespace QzBackend;

// Lengths around the sizes where the sums are cut and where BLAS would start threads.
std::size_t const lengths[] = {0, 1, 7, 8191, 8192, 8193, 10001, 100003};

TEST(Blas, LongVectorsMatchPlainLoops)
{
    std::mt19937 random(3);
    for (std::size_t const length : lengths) {
        std::vector<double> const x = testSupport::randomVector(int(length), random);
        std::vector<double> const y = testSupport::randomVector(int(length), random);
        long double sum = 0;
        for (std::size_t index = 0; index < length; ++index)
            sum += static_cast<long double>(x[index]) * y[index];
        EXPECT_NEAR(dot(length, x.data(), y.data()), double(sum),
                    1e-14 * std::sqrt(double(length) + 1.0) * 10);

        std::vector<double> result(length, -5.0);
        copy(length, y.data(), result.data());
        axpy(length, 0.5, x.data(), result.data());
        scal(length, -2.0, result.data());
        for (std::size_t index = 0; index < length; ++index)
            ASSERT_NEAR(result[index], -2.0 * (y[index] + 0.5 * x[index]), 1e-15) << length << ' ' << index;

        std::vector<float> const xf(x.begin(), x.end());
        std::vector<float> yf(y.begin(), y.end());
        EXPECT_NEAR(dot(length, xf.data(), yf.data()), double(sum), 1e-5 * std::sqrt(double(length) + 1.0));
    }
}

TEST(Blas, SumsDoNotDependOnThreadsAtWork)
{
    std::mt19937 random(4);
    std::vector<double> const x = testSupport::randomVector(300000, random);
    double const alone = dot(x.size(), x.data(), x.data());
    std::vector<double> results(4);
    std::vector<std::thread> threads;
    for (double & result : results)
        threads.emplace_back([&] {
            CBlasSingleThread const scope;
            result = dot(x.size(), x.data(), x.data());
        });
    for (std::thread & thread : threads)
        thread.join();
    for (double const result : results)
        EXPECT_EQ(result, alone);
}

// It finds the names of this process first, where they are those of the library.
TEST(Blas, AnotherBlasKeepsItsOwnMemory)
{
    void * const library = dlopen(OTHER_BLAS, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto const kernel = reinterpret_cast<int (*)()>(dlsym(library, "otherBlasKernel"));
    ASSERT_NE(kernel, nullptr);
    ASSERT_NE(dlsym(RTLD_DEFAULT, "blas_memory_alloc"), dlsym(library, "blas_memory_alloc"));
    std::vector<double> const a(64 * 64, 1.0);
    std::vector<double> c(a.size());
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(kernel(), 1);
        multiply(64, 64, 64, a.data(), a.data(), c.data());
        EXPECT_EQ(c[5], 64.0);
    }
    dlclose(library);
}

} // namespace
