// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <cstddef>
#include <cstdint>

namespace VescaExtVec
{

class ElementCell;

/// What a caller keeps between `lockElement` and `releaseElement`. Opaque. It stays safe to hand in until the
/// vector is deleted, or until it has been released as often as it was obtained.
using ElementHandle = ElementCell *;

/// An array of untyped elements of one size that lives in a temporary file, for data too large for the
/// memory. In memory are only the elements that are locked at the moment.
///
/// The file is made by the first `reserve` or growing `resize`, in the folder that `TMPDIR` names (`/tmp`
/// without one), and vanishes with `clear` or the vector. It is sparse where the file system can do that:
/// room is made by one byte at the far end, so a full disk may show only when elements are written back.
///
/// Every failure, of memory as of the file, is thrown as `std::bad_alloc` with the text "bad allocation", by
/// the call that meets it; the vector stays as after the last completed step and can be used on. Where the
/// size of files is limited (`RLIMIT_FSIZE`), the process has to ignore `SIGXFSZ` to get the exception.
///
/// Access in ascending order is what it is made for: then elements of up to 32 KiB are read ahead, 64 KiB
/// at once. Not thread-safe.
class QZMATH_API ExternVectorVoidInterface
{
public:
    virtual ~ExternVectorVoidInterface();

    /// Makes the file hold at least `n` elements.
    virtual void reserve(std::size_t n) = 0;

    /// Changes the number of elements in use. When it shrinks, locks on elements beyond the end are dead:
    /// what they changed is not written, their pointers must not be used, their handles may still be
    /// released, which does nothing. New elements are copies of `*fill`; without `fill` they are zero, or
    /// what stood there before the vector shrank. Beyond the capacity the file grows to at least twice its
    /// size, which is possible up to 0x7fffffff elements.
    virtual void resize(std::size_t n, void const * fill = nullptr) = 0;

    /// Elements in use.
    virtual std::size_t size() const = 0;
    /// Elements that the file has room for.
    virtual std::size_t capacity() const = 0;

    /// Gives up the file and all memory; every lock is dead as after a shrinking `resize`.
    virtual void clear() = 0;

    /// Brings an element into memory and returns it; `*handle` is what releases it. Everybody who locks the
    /// same element gets the same memory, which stays valid till the last of them releases it. Throws when
    /// `index` is not below `size()`. Linear in the number of elements locked at the same time; allocates
    /// only when more are locked than ever before.
    virtual void * lockElement(std::size_t index, ElementHandle * handle) = 0;

    /// One more hold on a locked element, which needs one more release.
    virtual void addElementRef(ElementHandle * handle) = 0;

    /// Gives back one hold. The last one to do so writes the element to the file if anyone has said
    /// `modified`. When that fails, the hold stays, and the release can be repeated. Does nothing for a dead
    /// handle.
    virtual void releaseElement(bool modified, ElementHandle * handle) = 0;
};

/// A new empty vector, which the caller deletes. `elementSize` is in bytes; 0 throws `std::bad_alloc`. Makes
/// no file yet.
QZMATH_API ExternVectorVoidInterface * CreateExternVectorVoid(std::uint64_t elementSize);

} // namespace VescaExtVec
