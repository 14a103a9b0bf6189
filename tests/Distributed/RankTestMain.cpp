// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <mpi.h>

#include <cstdio>

#if defined(__SANITIZE_ADDRESS__)
#define QZ_CHECKS_LEAKS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QZ_CHECKS_LEAKS 1
#endif
#endif
#if defined(QZ_CHECKS_LEAKS)
#include <sanitizer/lsan_interface.h>
#endif

// All ranks run the same tests. Only rank 0 tells of those that pass, every rank of its failures; one failure
// anywhere makes all ranks fail.
int main(int argc, char ** argv)
{
#if defined(QZ_CHECKS_LEAKS)
    __lsan_disable(); // what MPI loses as it starts
#endif
    MPI_Init(&argc, &argv);
#if defined(QZ_CHECKS_LEAKS)
    __lsan_enable();
#endif
    testing::InitGoogleTest(&argc, argv);
    int rank = 0;
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    if (rank != 0) {
        testing::TestEventListeners & listeners = testing::UnitTest::GetInstance()->listeners();
        delete listeners.Release(listeners.default_result_printer());
        class Failures : public testing::EmptyTestEventListener
        {
            void OnTestPartResult(testing::TestPartResult const & result) override
            {
                int own = 0;
                MPI_Comm_rank(MPI_COMM_WORLD, &own);
                if (result.failed())
                    std::fprintf(stderr, "rank %d: %s:%d: %s\n", own,
                                 result.file_name() != nullptr ? result.file_name() : "",
                                 result.line_number(), result.summary());
            }
        };
        listeners.Append(new Failures);
    }
    int failed = RUN_ALL_TESTS();
    MPI_Allreduce(MPI_IN_PLACE, &failed, 1, MPI_INT, MPI_MAX, MPI_COMM_WORLD);
#if defined(QZ_CHECKS_LEAKS)
    // Here, not at the end of the process: what MPI and PETSc keep for themselves can be reached only as long
    // as their modules are loaded.
    __lsan_do_leak_check();
#endif
    MPI_Finalize();
    return failed;
}
