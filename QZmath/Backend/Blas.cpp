// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/Blas.h>

#include <algorithm>
#include <atomic>
#include <cblas.h>
#include <cstdint>
#include <mutex>
#include <new>
#include <sys/mman.h>
#include <vector>

// Present in OpenBLAS only; null at run time with any other BLAS.
extern "C" {
__attribute__((weak)) void openblas_set_num_threads(int count);
__attribute__((weak)) int openblas_get_num_threads(void);
__attribute__((weak)) void * blas_memory_alloc(int place);
__attribute__((weak)) void blas_memory_free(void * memory);
}

namespace QzBackend
{
namespace
{

// OpenBLAS divides vectors of more than 10000 elements among threads.
constexpr std::size_t chunkSize = 8192;

template <class Operation>
void forChunks(std::size_t size, Operation operation)
{
    for (std::size_t begin = 0; begin < size; begin += chunkSize)
        operation(begin, int(std::min(chunkSize, size - begin)));
}

// No BLAS divides less work than this many multiplications among threads.
constexpr std::int64_t largestSerialWork = 4096;

// Runs an operation on the calling thread alone.
template <class Operation>
void runSerially(std::int64_t multiplications, Operation operation)
{
    CBlasMemory const memory;
    if (multiplications <= largestSerialWork) {
        operation();
    } else {
        CBlasSingleThread const serial;
        operation();
    }
}

std::mutex threadSettingMutex;
int singleThreadScopes = 0;
int savedThreads = 0;

// What OpenBLAS maps for a thread, at most, and a bit more.
constexpr std::size_t kernelMemory = (std::size_t(128) << 20) + (std::size_t(1) << 20);
std::mutex kernelMemoryMutex;
std::atomic<int> threadsInKernels{0};
std::atomic<int> threadsProvided{0};

bool isMemoryToBeHad()
{
    void * const memory =
        mmap(nullptr, kernelMemory, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return memory != MAP_FAILED && munmap(memory, kernelMemory) == 0;
}

// Has OpenBLAS map memory for so many threads.
void provideFor(int threads)
{
    // All that it has mapped, in the order in which it was seen.
    static std::vector<void *> & known = *new std::vector<void *>;
    std::lock_guard<std::mutex> const lock(kernelMemoryMutex);
    struct Held
    {
        ~Held()
        {
            for (void * const piece : pieces)
                blas_memory_free(piece);
        }
        std::vector<void *> pieces;
    } held;
    held.pieces.reserve(std::size_t(threads));
    known.reserve(std::size_t(threads));
    while (known.size() < std::size_t(threads)) {
        if (!isMemoryToBeHad())
            throw std::bad_alloc();
        if (held.pieces.size() == held.pieces.capacity())
            held.pieces.reserve(2 * held.pieces.size());
        void * const piece = blas_memory_alloc(0);
        held.pieces.push_back(piece);
        if (std::find(known.begin(), known.end(), piece) == known.end())
            known.push_back(piece);
    }
    threadsProvided = std::max(threadsProvided.load(), threads);
}

} // namespace

float dot(std::size_t size, float const * left, float const * right)
{
    float sum = 0;
    forChunks(size, [&](std::size_t begin, int count) {
        sum += cblas_sdot(count, left + begin, 1, right + begin, 1);
    });
    return sum;
}

double dot(std::size_t size, double const * left, double const * right)
{
    double sum = 0;
    forChunks(size, [&](std::size_t begin, int count) {
        sum += cblas_ddot(count, left + begin, 1, right + begin, 1);
    });
    return sum;
}

void axpy(std::size_t size, float factor, float const * x, float * y)
{
    forChunks(size,
              [&](std::size_t begin, int count) { cblas_saxpy(count, factor, x + begin, 1, y + begin, 1); });
}

void axpy(std::size_t size, double factor, double const * x, double * y)
{
    forChunks(size,
              [&](std::size_t begin, int count) { cblas_daxpy(count, factor, x + begin, 1, y + begin, 1); });
}

void copy(std::size_t size, float const * x, float * y)
{
    forChunks(size, [&](std::size_t begin, int count) { cblas_scopy(count, x + begin, 1, y + begin, 1); });
}

void copy(std::size_t size, double const * x, double * y)
{
    forChunks(size, [&](std::size_t begin, int count) { cblas_dcopy(count, x + begin, 1, y + begin, 1); });
}

void scal(std::size_t size, float factor, float * x)
{
    forChunks(size, [&](std::size_t begin, int count) { cblas_sscal(count, factor, x + begin, 1); });
}

void scal(std::size_t size, double factor, double * x)
{
    forChunks(size, [&](std::size_t begin, int count) { cblas_dscal(count, factor, x + begin, 1); });
}

void gemmTransposed(int rows, int columns, int inner, double factor, double const * a, int leadingA,
                    double const * b, int leadingB, double * c, int leadingC)
{
    if (rows <= 0 || columns <= 0 || inner <= 0)
        return;
    CBlasMemory const memory;
    cblas_dgemm(CblasColMajor, CblasNoTrans, CblasTrans, rows, columns, inner, factor, a, leadingA, b,
                leadingB, 1.0, c, leadingC);
}

void addProductTransposed(int rows, int columns, int inner, double const * a, int leadingA, double const * b,
                          int leadingB, double * c, int leadingC)
{
    gemmTransposed(rows, columns, inner, 1.0, a, leadingA, b, leadingB, c, leadingC);
}

void productTransposed(int rows, int columns, int inner, double const * a, int leadingA, double const * b,
                       int leadingB, double * c, int leadingC)
{
    if (rows <= 0 || columns <= 0)
        return;
    CBlasMemory const memory;
    cblas_dgemm(CblasColMajor, CblasNoTrans, CblasTrans, rows, columns, inner, 1.0, a, leadingA, b, leadingB,
                0.0, c, leadingC);
}

void subtractProduct(bool transposed, int rows, int columns, int inner, double const * a, int leadingA,
                     double const * b, int leadingB, double * c, int leadingC)
{
    if (rows <= 0 || columns <= 0 || inner <= 0)
        return;
    CBlasMemory const memory;
    CBLAS_TRANSPOSE const form = transposed ? CblasTrans : CblasNoTrans;
    if (columns == 1)
        cblas_dgemv(CblasColMajor, form, transposed ? inner : rows, transposed ? rows : inner, -1.0, a,
                    leadingA, b, 1, 1.0, c, 1);
    else
        cblas_dgemm(CblasColMajor, form, CblasNoTrans, rows, columns, inner, -1.0, a, leadingA, b, leadingB,
                    1.0, c, leadingC);
}

void solveLower(bool transposed, int size, int columns, double const * lower, int leadingL, double * b,
                int leadingB)
{
    if (size <= 0 || columns <= 0)
        return;
    CBLAS_TRANSPOSE const form = transposed ? CblasTrans : CblasNoTrans;
    CBlasMemory const memory;
    if (columns == 1)
        cblas_dtrsv(CblasColMajor, CblasLower, form, CblasNonUnit, size, lower, leadingL, b, 1);
    else
        cblas_dtrsm(CblasColMajor, CblasLeft, CblasLower, form, CblasNonUnit, size, columns, 1.0, lower,
                    leadingL, b, leadingB);
}

void solveUnitLower(int size, double const * matrix, int leading, double * x)
{
    if (size <= 0)
        return;
    CBlasMemory const memory;
    cblas_dtrsv(CblasColMajor, CblasLower, CblasNoTrans, CblasUnit, size, matrix, leading, x, 1);
}

void solveUpper(int size, double const * matrix, int leading, double * x)
{
    if (size <= 0)
        return;
    CBlasMemory const memory;
    cblas_dtrsv(CblasColMajor, CblasUpper, CblasNoTrans, CblasNonUnit, size, matrix, leading, x, 1);
}

void solveLowerTransposedFromRight(int rows, int size, double const * lower, int leadingL, double * b,
                                   int leadingB)
{
    if (rows <= 0 || size <= 0)
        return;
    CBlasMemory const memory;
    cblas_dtrsm(CblasColMajor, CblasRight, CblasLower, CblasTrans, CblasNonUnit, rows, size, 1.0, lower,
                leadingL, b, leadingB);
}

void multiply(int rows, int columns, int inner, float const * a, float const * b, float * c)
{
    runSerially(std::int64_t(rows) * columns * inner, [=] {
        cblas_sgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, rows, columns, inner, 1.0F, a, rows, b, inner,
                    0.0F, c, rows);
    });
}

void multiply(int rows, int columns, int inner, double const * a, double const * b, double * c)
{
    runSerially(std::int64_t(rows) * columns * inner, [=] {
        cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, rows, columns, inner, 1.0, a, rows, b, inner,
                    0.0, c, rows);
    });
}

void multiply(int rows, int columns, float const * a, float const * x, float * y)
{
    runSerially(std::int64_t(rows) * columns, [=] {
        cblas_sgemv(CblasColMajor, CblasNoTrans, rows, columns, 1.0F, a, rows, x, 1, 0.0F, y, 1);
    });
}

void multiply(int rows, int columns, double const * a, double const * x, double * y)
{
    runSerially(std::int64_t(rows) * columns, [=] {
        cblas_dgemv(CblasColMajor, CblasNoTrans, rows, columns, 1.0, a, rows, x, 1, 0.0, y, 1);
    });
}

CBlasSingleThread::CBlasSingleThread()
{
    if (!openblas_set_num_threads || !openblas_get_num_threads)
        return;
    std::lock_guard<std::mutex> const lock(threadSettingMutex);
    if (singleThreadScopes++ == 0) {
        savedThreads = openblas_get_num_threads();
        openblas_set_num_threads(1);
    }
}

CBlasSingleThread::~CBlasSingleThread()
{
    if (!openblas_set_num_threads || !openblas_get_num_threads)
        return;
    std::lock_guard<std::mutex> const lock(threadSettingMutex);
    if (--singleThreadScopes == 0)
        openblas_set_num_threads(savedThreads);
}

CBlasMemory::CBlasMemory()
{
    int const threads = ++threadsInKernels;
    if (threads <= threadsProvided || !blas_memory_alloc || !blas_memory_free)
        return;
    try {
        provideFor(threads);
    } catch (...) {
        --threadsInKernels;
        throw;
    }
}

int CBlasMemory::threadsProvidedFor(int wanted)
{
    int threads = 1;
    if (blas_memory_alloc && blas_memory_free)
        try {
            for (; threads < wanted; ++threads)
                if (threads >= threadsProvided)
                    provideFor(threads + 1);
        } catch (std::bad_alloc const &) {
            return threads;
        }
    return std::max(wanted, 1);
}

CBlasMemory::~CBlasMemory() { --threadsInKernels; }

} // namespace QzBackend
