// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <mpi.h>

// All ranks run the same tests. Only rank 0 tells of those that pass, every rank of its failures; one failure
// anywhere makes all ranks fail.
int main(int argc, char ** argv)
{
    MPI_Init(&argc, &argv);
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
    MPI_Finalize();
    return failed;
}
