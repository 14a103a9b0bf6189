// SPDX-License-Identifier: Apache-2.0
// Stands for an OpenBLAS that a host brings: a kernel that asks for memory by the names of OpenBLAS and
// expects its own functions to answer.

extern "C" {

int otherBlasHeld = 0;
static double buffer[64];

__attribute__((visibility("default"))) void * blas_memory_alloc(int)
{
    ++otherBlasHeld;
    return buffer;
}

__attribute__((visibility("default"))) void blas_memory_free(void * memory)
{
    otherBlasHeld -= memory == buffer ? 1 : 100;
}

// How many pieces were held while it worked, plus 10 times those left behind.
__attribute__((visibility("default"))) int otherBlasKernel()
{
    void * const memory = blas_memory_alloc(1);
    int const during = otherBlasHeld;
    *static_cast<double *>(memory) = 1.0;
    blas_memory_free(memory);
    return during + 10 * otherBlasHeld;
}
}
