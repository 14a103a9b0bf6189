// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Ranks/Petsc.h>

#include <mpi.h>

#include <array>
#include <cstddef>
#include <new>
#include <stdexcept>
#include <string>

#include <signal.h>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace QZmath::Distributed
{

namespace
{

// What the program does on signals, which comes back at the end: PETSc sets handlers of its own when it
// begins, and leaves the system's when these are taken away.
class KeptSignals
{
public:
    KeptSignals()
    {
        for (int number = 1; number < static_cast<int>(m_actions.size()); ++number)
            m_isKnown[static_cast<std::size_t>(number)] =
                sigaction(number, nullptr, &m_actions[static_cast<std::size_t>(number)]) == 0;
    }
    ~KeptSignals()
    {
        for (int number = 1; number < static_cast<int>(m_actions.size()); ++number) {
            if (m_isKnown[static_cast<std::size_t>(number)])
                sigaction(number, &m_actions[static_cast<std::size_t>(number)], nullptr);
        }
    }
    KeptSignals(KeptSignals const &) = delete;
    KeptSignals & operator=(KeptSignals const &) = delete;

private:
    std::array<struct sigaction, 32> m_actions{}; // of the signals with names
    std::array<bool, 32> m_isKnown{};
};

#ifdef __GLIBC__
// One of the solvers that PETSc is linked with (SuperLU_DIST) forbids the C library, as soon as it is loaded,
// to give any memory back to the system. What it forbids is allowed again here: libraries are made ready
// after those that they need, and before the program, which may still decide otherwise. Large blocks are then
// pages of their own, and a rank has them only as long as something is in them.
[[maybe_unused]] bool const givesMemoryBack = mallopt(M_MMAP_MAX, 1 << 14) != 0 &&
                                              mallopt(M_MMAP_THRESHOLD, 1 << 18) != 0 &&
                                              mallopt(M_TRIM_THRESHOLD, 1 << 20) != 0;
#endif

} // namespace

void ensurePetsc()
{
    PetscBool isInitialized = PETSC_FALSE;
    if (PetscInitialized(&isInitialized) != 0 || isInitialized == PETSC_TRUE)
        return;
    KeptSignals const kept;
    if (PetscInitializeNoPointers(0, nullptr, nullptr, nullptr) != 0)
        throw std::runtime_error("PETSc cannot be initialised");
    checkPetsc(PetscPopSignalHandler());
    checkPetsc(PetscPushErrorHandler(PetscReturnErrorHandler, nullptr));
    // Whoever ends MPI ends PETSc with it: attributes of the process' own communicator are freed first.
    int key = MPI_KEYVAL_INVALID;
    MPI_Comm_create_keyval(
        MPI_COMM_NULL_COPY_FN,
        [](MPI_Comm, int, void *, void *) {
            PetscBool isFinalized = PETSC_FALSE;
            if (PetscFinalized(&isFinalized) == 0 && isFinalized == PETSC_FALSE)
                PetscFinalize();
            return MPI_SUCCESS;
        },
        &key, nullptr);
    MPI_Comm_set_attr(MPI_COMM_SELF, key, nullptr);
}

void checkPetsc(PetscErrorCode code)
{
    if (code == 0)
        return;
    if (code == PETSC_ERR_MEM)
        throw std::bad_alloc();
    char const * text = nullptr;
    PetscErrorMessage(code, &text, nullptr);
    throw std::runtime_error(
        std::string("PETSc: ") +
        (text != nullptr ? text : ("error " + std::to_string(static_cast<int>(code))).c_str()));
}

} // namespace QZmath::Distributed
