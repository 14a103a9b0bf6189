// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/Blas.h>

#include <algorithm>
#include <atomic>
#include <cblas.h>
#include <cstdint>
#include <mutex>
#include <new>
#include <sched.h>
#include <sys/mman.h>
#include <vector>

// Present in OpenBLAS only; null at run time with any other BLAS.
extern "C" {
void * blas_memory_alloc(int purpose);
void blas_memory_free(void * memory);
__attribute__((weak)) void openblas_set_num_threads(int count);
__attribute__((weak)) int openblas_get_num_threads(void);
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

/// Runs an operation on the calling thread alone.
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

// What a kernel of OpenBLAS works in, at most.
constexpr std::size_t kernelMemory = std::size_t(128) << 20;
// An argument of `blas_memory_alloc` that no kernel gives: it may fail.
constexpr int mayFail = -4711;
std::mutex kernelMemoryMutex;
std::atomic<int> threadsInKernels{0};
std::atomic<int> threadsProvided{0};

/// The pieces of memory that are mapped and in nobody's use.
struct FreePieces
{
    static FreePieces & instance()
    {
        static FreePieces * const pieces = new FreePieces; // kernels may run after static objects are gone
        return *pieces;
    }
    std::mutex mutex;
    void * first = nullptr; ///< each piece begins with the address of the next one
};

/// Maps memory for so many threads.
void provideFor(int threads)
{
    // All that was mapped, in the order in which it was seen.
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
        if (held.pieces.size() == held.pieces.capacity())
            held.pieces.reserve(2 * held.pieces.size());
        void * const piece = blas_memory_alloc(mayFail);
        if (!piece)
            throw std::bad_alloc();
        held.pieces.push_back(piece);
        if (std::find(known.begin(), known.end(), piece) == known.end())
            known.push_back(piece);
    }
    threadsProvided = std::max(threadsProvided.load(), threads);
}

} // namespace

} // namespace QzBackend

// These two stand in for functions of OpenBLAS, whose interfaces call them by name. Its own, in the variant
// without threads, give the same memory to two threads that ask at the same time.
extern "C" {
__attribute__((visibility("default"))) void * blas_memory_alloc(int purpose)
{
    using namespace QzBackend;
    FreePieces & pieces = FreePieces::instance();
    for (;;) {
        {
            std::lock_guard<std::mutex> const lock(pieces.mutex);
            if (void * const piece = pieces.first) {
                pieces.first = *static_cast<void **>(piece);
                return piece;
            }
        }
        void * const piece =
            mmap(nullptr, kernelMemory, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (piece != MAP_FAILED)
            return piece;
        if (purpose == mayFail)
            return nullptr;
        sched_yield(); // a kernel cannot do without; another thread may give its memory back
    }
}

__attribute__((visibility("default"))) void blas_memory_free(void * memory)
{
    QzBackend::FreePieces & pieces = QzBackend::FreePieces::instance();
    std::lock_guard<std::mutex> const lock(pieces.mutex);
    *static_cast<void **>(memory) = pieces.first;
    pieces.first = memory;
}
}

namespace QzBackend
{

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

void solveUnitLower(bool transposed, int size, double const * matrix, int leading, double * x)
{
    if (size <= 0)
        return;
    CBlasMemory const memory;
    cblas_dtrsv(CblasColMajor, CblasLower, transposed ? CblasTrans : CblasNoTrans, CblasUnit, size, matrix,
                leading, x, 1);
}

void solveUpper(bool transposed, int size, double const * matrix, int leading, double * x)
{
    if (size <= 0)
        return;
    CBlasMemory const memory;
    cblas_dtrsv(CblasColMajor, CblasUpper, transposed ? CblasTrans : CblasNoTrans, CblasNonUnit, size, matrix,
                leading, x, 1);
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
    if (threads <= threadsProvided)
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
