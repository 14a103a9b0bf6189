// SPDX-License-Identifier: Apache-2.0
#include <QZmath/LinSys/SparseVector.h>

#include <QZsys/IndexDetail.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

#include <sys/types.h>

namespace REmath
{

using VsUt::asIndex;

namespace
{

static_assert(sizeof(int) == 4, "the file form has positions of 4 bytes");

// Elements that are read in one piece from a file that has not shown yet that it holds them.
constexpr std::size_t pieceElements = 1 << 14;

template <class Element>
bool writeAll(std::FILE * file, Element const * elements, std::size_t count)
{
    return count == 0 || std::fwrite(elements, sizeof(Element), count, file) == count;
}

template <class Element>
bool readAll(std::FILE * file, Element * elements, std::size_t count)
{
    return std::fread(elements, sizeof(Element), count, file) == count;
}

// Grows the vector only as far as the elements come. At an early end the last piece is filled up with zeros.
template <class Element>
bool readInPieces(std::FILE * file, std::vector<Element> & elements, std::size_t count)
{
    while (elements.size() < count) {
        std::size_t const begin = elements.size();
        std::size_t const piece = std::min(count - begin, pieceElements);
        elements.resize(begin + piece);
        if (!readAll(file, elements.data() + begin, piece))
            return false;
    }
    return true;
}

// How many bytes follow the place where the file stands; 0 when it cannot tell.
std::int64_t remainingBytes(std::FILE * file)
{
    off_t const here = ftello(file);
    if (here < 0 || fseeko(file, 0, SEEK_END) != 0)
        return 0;
    off_t const end = ftello(file);
    return fseeko(file, here, SEEK_SET) == 0 ? std::max<std::int64_t>(0, end - here) : 0;
}

} // namespace

template <class T>
CSparseVectorTmpl<T>::CSparseVectorTmpl(int size, T const * array)
{
    AssignByVector(size, array);
}

template <class T>
T CSparseVectorTmpl<T>::GetElement(int position) const
{
    int const index = GetCompactIdx(position);
    return index < 0 ? T(0) : m_values[asIndex(index)];
}

template <class T>
int CSparseVectorTmpl<T>::GetCompactIdx(int position) const
{
    auto const found = std::lower_bound(m_positions.begin(), m_positions.end(), position);
    return found != m_positions.end() && *found == position ? static_cast<int>(found - m_positions.begin())
                                                            : -1;
}

template <class T>
void CSparseVectorTmpl<T>::ReserveNonZeroElem(int count)
{
    if (count > 0) {
        m_positions.reserve(asIndex(count));
        m_values.reserve(asIndex(count));
    }
}

template <class T>
void CSparseVectorTmpl<T>::SetElementNoIdxSearch(int position, T value)
{
    m_positions.push_back(position);
    m_values.push_back(value);
}

template <class T>
void CSparseVectorTmpl<T>::AssignByVector(int size, T const * array)
{
    Reset();
    int nonZeros = 0;
    for (int position = 0; position < size; ++position)
        nonZeros += !IsElementZero(array[position]);
    ReserveNonZeroElem(nonZeros);
    for (int position = 0; position < size && GetNOfNonZeroElements() < nonZeros; ++position)
        if (!IsElementZero(array[position]))
            SetElementNoIdxSearch(position, array[position]);
}

template <class T>
void CSparseVectorTmpl<T>::Reset()
{
    m_positions.clear();
    m_values.clear();
}

template <class T>
bool CSparseVectorTmpl<T>::SaveToFile(std::FILE * file) const
{
    std::size_t const stored = m_positions.size();
    if (file == nullptr || m_values.size() != stored ||
        stored > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        return false;
    int const count = static_cast<int>(stored);
    return writeAll(file, &count, 1) && writeAll(file, m_positions.data(), stored) &&
           writeAll(file, m_values.data(), stored);
}

template <class T>
bool CSparseVectorTmpl<T>::LoadFromFile(std::FILE * file)
{
    Reset();
    int count = 0;
    if (file == nullptr || !readAll(file, &count, 1) || count < 0)
        return false;
    bool const complete = count == 0 || readBody(file, count);
    m_values.resize(m_positions.size());
    return complete;
}

template <class T>
bool CSparseVectorTmpl<T>::readBody(std::FILE * file, int count)
{
    std::size_t const elements = asIndex(count);
    std::int64_t const needed = std::int64_t{count} * static_cast<std::int64_t>(sizeof(int) + sizeof(T));
    if (needed <= remainingBytes(file)) {
        m_positions.reserve(elements);
        m_values.reserve(elements);
    }
    return readInPieces(file, m_positions, elements) && readInPieces(file, m_values, elements);
}

template class CSparseVectorTmpl<float>;
template class CSparseVectorTmpl<double>;

} // namespace REmath
