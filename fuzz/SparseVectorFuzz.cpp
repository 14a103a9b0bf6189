// SPDX-License-Identifier: Apache-2.0

// Any bytes as the file of a sparse vector: loading must not take more memory than the bytes bear out (run
// with -rss_limit_mb=256), what was loaded must be harmless to use, and a sound file comes back as it was.

#include <QZmath/LinSys/SparseVector.h>
#include <QZmath/LinSys/VPLSstorageRows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace
{

template <class T>
void loadAndUse(std::uint8_t const * bytes, std::size_t size)
{
    std::FILE * const file = fmemopen(const_cast<std::uint8_t *>(bytes), size, "rb");
    REmath::CSparseVectorTmpl<T> vector;
    bool const loaded = vector.LoadFromFile(file);
    long const end = std::ftell(file);
    std::fclose(file);

    std::vector<T> const ones(100, T(1));
    REmath::CSparseVectorAsVPLSstorageRow<T>::scalarProduct(vector, static_cast<int>(ones.size()),
                                                            ones.data());
    for (int k = 0; k < std::min(100, vector.GetNOfNonZeroElements()); ++k) {
        vector.GetElement(vector.GetNonZeroPos(k));
    }
    if (!loaded) {
        return;
    }
    std::vector<std::uint8_t> saved(size + 1);
    std::FILE * const copy = fmemopen(saved.data(), saved.size(), "wb");
    bool const isSame = vector.SaveToFile(copy) && std::ftell(copy) == end && std::fflush(copy) == 0 &&
                        std::memcmp(saved.data(), bytes, static_cast<std::size_t>(end)) == 0;
    std::fclose(copy);
    if (!isSame) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * bytes, std::size_t size)
{
    if (size > 0) {
        loadAndUse<float>(bytes, size);
        loadAndUse<double>(bytes, size);
    }
    return 0;
}
