// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Backend/Blas.h>

#include <algorithm>
#include <atomic>
#include <cblas.h>
#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <link.h>
#include <mutex>
#include <new>
#include <sched.h>
#include <sys/mman.h>
#include <vector>

// Present in OpenBLAS only; null at run time with any other BLAS.
extern "C" {
__attribute__((weak)) void openblas_set_num_threads(int count);
__attribute__((weak)) int openblas_get_num_threads(void);
__attribute__((weak)) char * openblas_get_config(void);
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

/// A piece for one thread; null when the system refuses it.
void * takePiece()
{
    FreePieces & pieces = FreePieces::instance();
    {
        std::lock_guard<std::mutex> const lock(pieces.mutex);
        if (void * const piece = pieces.first) {
            pieces.first = *static_cast<void **>(piece);
            return piece;
        }
    }
    void * const piece =
        mmap(nullptr, kernelMemory, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return piece == MAP_FAILED ? nullptr : piece;
}

void givePieceBack(void * piece)
{
    FreePieces & pieces = FreePieces::instance();
    std::lock_guard<std::mutex> const lock(pieces.mutex);
    *static_cast<void **>(piece) = pieces.first;
    pieces.first = piece;
}

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
                givePieceBack(piece);
        }
        std::vector<void *> pieces;
    } held;
    held.pieces.reserve(std::size_t(threads));
    known.reserve(std::size_t(threads));
    while (known.size() < std::size_t(threads)) {
        if (held.pieces.size() == held.pieces.capacity())
            held.pieces.reserve(2 * held.pieces.size());
        void * const piece = takePiece();
        if (!piece)
            throw std::bad_alloc();
        held.pieces.push_back(piece);
        if (std::find(known.begin(), known.end(), piece) == known.end())
            known.push_back(piece);
    }
    threadsProvided = std::max(threadsProvided.load(), threads);
}

/// A library whose kernels ask for memory here, and the functions of its own that they mean.
struct Asking
{
    std::uintptr_t begin, end; ///< where its code stands
    void * (*allocate)(int);   ///< null for the BLAS that this library is made for
    void (*release)(void *);
};

/// The libraries that have asked so far, and what others than ours have been given.
class AskingLibraries
{
public:
    static AskingLibraries & instance()
    {
        static AskingLibraries * const libraries = new AskingLibraries;
        return *libraries;
    }
    /// \param caller  an address in the library's code. Null for the one that we serve.
    Asking const * other(void const * caller)
    {
        std::uintptr_t const address = reinterpret_cast<std::uintptr_t>(caller);
        int const known = m_count.load(std::memory_order_acquire);
        for (int number = 0; number < known; ++number)
            if (address >= m_libraries[number].begin && address < m_libraries[number].end)
                return m_libraries[number].allocate ? &m_libraries[number] : nullptr;
        return add(address);
    }
    void noteGiven(void * memory, Asking const & library)
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        for (Given & given : m_given)
            if (given.memory == memory || !given.memory) {
                given = {memory, &library};
                m_othersServed.store(true, std::memory_order_release);
                return;
            }
    }
    /// Null for memory of ours.
    Asking const * giverOf(void const * memory)
    {
        if (!m_othersServed.load(std::memory_order_acquire))
            return nullptr;
        std::lock_guard<std::mutex> const lock(m_mutex);
        for (Given const & given : m_given)
            if (given.memory == memory)
                return given.library;
        return nullptr;
    }

private:
    struct Given
    {
        void * memory;
        Asking const * library;
    };
    // OpenBLAS has room for some hundred buffers, which it gives out again and again.
    static constexpr int mostLibraries = 32, mostGiven = 8192;

    Asking const * add(std::uintptr_t address);

    std::mutex m_mutex;
    std::atomic<int> m_count{0};
    std::atomic<bool> m_othersServed{false};
    Asking m_libraries[mostLibraries] = {};
    Given m_given[mostGiven] = {};
};

} // namespace

} // namespace QzBackend

extern "C" {
__attribute__((visibility("default"))) void * blas_memory_alloc(int purpose);
__attribute__((visibility("default"))) void blas_memory_free(void * memory);
}

namespace QzBackend
{
namespace
{

Asking const * AskingLibraries::add(std::uintptr_t address)
{
    struct Search
    {
        std::uintptr_t address;
        Asking found;
        char const * name;
    } search{address, {}, nullptr};
    auto const visit = [](dl_phdr_info * image, std::size_t, void * data) {
        Search & wanted = *static_cast<Search *>(data);
        for (int number = 0; number < image->dlpi_phnum; ++number) {
            ElfW(Phdr) const & segment = image->dlpi_phdr[number];
            std::uintptr_t const begin = image->dlpi_addr + segment.p_vaddr;
            if (segment.p_type == PT_LOAD && wanted.address >= begin &&
                wanted.address < begin + segment.p_memsz) {
                wanted.found.begin = begin;
                wanted.found.end = begin + segment.p_memsz;
                wanted.name = image->dlpi_name;
                return 1;
            }
        }
        return 0;
    };
    dl_iterate_phdr(visit, &search);
    Asking & library = search.found;
    if (search.name && search.name[0]) {
        void * const handle = dlopen(search.name, RTLD_LAZY | RTLD_NOLOAD); // keeps it loaded, too
        if (!handle)
            return nullptr; // short of memory: asked again next time
        auto const find = [&](char const * name, auto & function) {
            void * const found = dlsym(handle, name);
            std::memcpy(&function, &found, sizeof found);
            return found != nullptr;
        };
        int (*isParallel)() = nullptr;
        char * (*configuration)() = nullptr;
        bool const isLikeOurs = find("openblas_get_parallel", isParallel) &&
                                find("openblas_get_config", configuration) && openblas_get_config &&
                                isParallel() == 0 && std::strcmp(configuration(), openblas_get_config()) == 0;
        if (!isLikeOurs &&
            !(find("blas_memory_alloc", library.allocate) && find("blas_memory_free", library.release) &&
              library.allocate != &blas_memory_alloc))
            library.allocate = nullptr;
    }
    std::lock_guard<std::mutex> const lock(m_mutex);
    int const count = m_count.load(std::memory_order_relaxed);
    for (int number = 0; number < count; ++number)
        if (m_libraries[number].begin == library.begin)
            return m_libraries[number].allocate ? &m_libraries[number] : nullptr;
    if (count == mostLibraries || library.begin == library.end)
        return nullptr;
    m_libraries[count] = library;
    m_count.store(count + 1, std::memory_order_release);
    return library.allocate ? &m_libraries[count] : nullptr;
}

} // namespace
} // namespace QzBackend

// These two stand in for functions of OpenBLAS, whose interfaces call them by name. Its own, in the variant
// without threads, give the same memory to two threads that ask at the same time. The names are visible to
// everything in the process: another OpenBLAS that a host brings, with buffers of other sizes perhaps, is
// handed on to its own functions.
extern "C" {
void * blas_memory_alloc(int purpose)
{
    using namespace QzBackend;
    AskingLibraries & libraries = AskingLibraries::instance();
    if (Asking const * const other = libraries.other(__builtin_return_address(0))) {
        void * const memory = other->allocate(purpose);
        libraries.noteGiven(memory, *other);
        return memory;
    }
    for (;;) {
        if (void * const piece = takePiece())
            return piece;
        sched_yield(); // a kernel cannot do without; another thread may give its memory back
    }
}

// The last call of a kernel, perhaps by a jump: the caller's address says nothing here.
void blas_memory_free(void * memory)
{
    using namespace QzBackend;
    if (Asking const * const other = AskingLibraries::instance().giverOf(memory))
        other->release(memory);
    else
        givePieceBack(memory);
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
