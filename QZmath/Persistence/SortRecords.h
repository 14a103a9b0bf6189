// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Records for sorting by a key that stands beside what is sorted: one to three integers, such as indices,
/// and the key as the last field. `<`, `>`, `<=` and `>=` look at the key only, `==` at all fields: two
/// records of which neither is less than the other need not be equal. Float keys are not to be NaN. All
/// fields have 32 bits.

/// A reference to something and the key to sort it by.
struct CSortRef
{
    int ref;
    float key;

    friend bool operator<(CSortRef const & a, CSortRef const & b) { return a.key < b.key; }
    friend bool operator>(CSortRef const & a, CSortRef const & b) { return a.key > b.key; }
    friend bool operator<=(CSortRef const & a, CSortRef const & b) { return a.key <= b.key; }
    friend bool operator>=(CSortRef const & a, CSortRef const & b) { return a.key >= b.key; }
    friend bool operator==(CSortRef const & a, CSortRef const & b)
    {
        return a.ref == b.ref && a.key == b.key;
    }
};

/// A reference and its key for the opposite order: what has the greater key is the less.
struct CBackSortRef
{
    int ref;
    float key;

    friend bool operator<(CBackSortRef const & a, CBackSortRef const & b) { return a.key > b.key; }
    friend bool operator>(CBackSortRef const & a, CBackSortRef const & b) { return a.key < b.key; }
    friend bool operator<=(CBackSortRef const & a, CBackSortRef const & b) { return a.key >= b.key; }
    friend bool operator>=(CBackSortRef const & a, CBackSortRef const & b) { return a.key <= b.key; }
    friend bool operator==(CBackSortRef const & a, CBackSortRef const & b)
    {
        return a.ref == b.ref && a.key == b.key;
    }
};

/// A reference and its integer key.
struct CSortRefInt
{
    /// Leaves the fields unset.
    CSortRefInt() {} // NOLINT(modernize-use-equals-default): `CSortRefInt()` is not to set them to zero
    CSortRefInt(int reference, int sortKey) : ref(reference), key(sortKey) {}

    int ref;
    int key;

    friend bool operator<(CSortRefInt const & a, CSortRefInt const & b) { return a.key < b.key; }
    friend bool operator>(CSortRefInt const & a, CSortRefInt const & b) { return a.key > b.key; }
    friend bool operator<=(CSortRefInt const & a, CSortRefInt const & b) { return a.key <= b.key; }
    friend bool operator>=(CSortRefInt const & a, CSortRefInt const & b) { return a.key >= b.key; }
    friend bool operator==(CSortRefInt const & a, CSortRefInt const & b)
    {
        return a.ref == b.ref && a.key == b.key;
    }
};

/// A pair and its key.
struct CSortRef2
{
    int ref1;
    int ref2;
    float key;

    friend bool operator<(CSortRef2 const & a, CSortRef2 const & b) { return a.key < b.key; }
    friend bool operator>(CSortRef2 const & a, CSortRef2 const & b) { return a.key > b.key; }
    friend bool operator<=(CSortRef2 const & a, CSortRef2 const & b) { return a.key <= b.key; }
    friend bool operator>=(CSortRef2 const & a, CSortRef2 const & b) { return a.key >= b.key; }
    friend bool operator==(CSortRef2 const & a, CSortRef2 const & b)
    {
        return a.ref1 == b.ref1 && a.ref2 == b.ref2 && a.key == b.key;
    }
};

/// A pair and its integer key.
struct CSortRef2Int
{
    int ref1;
    int ref2;
    int key;

    friend bool operator<(CSortRef2Int const & a, CSortRef2Int const & b) { return a.key < b.key; }
    friend bool operator>(CSortRef2Int const & a, CSortRef2Int const & b) { return a.key > b.key; }
    friend bool operator<=(CSortRef2Int const & a, CSortRef2Int const & b) { return a.key <= b.key; }
    friend bool operator>=(CSortRef2Int const & a, CSortRef2Int const & b) { return a.key >= b.key; }
    friend bool operator==(CSortRef2Int const & a, CSortRef2Int const & b)
    {
        return a.ref1 == b.ref1 && a.ref2 == b.ref2 && a.key == b.key;
    }
};

/// A triple and its key.
struct CSortRef3
{
    int ref1;
    int ref2;
    int ref3;
    float key;

    friend bool operator<(CSortRef3 const & a, CSortRef3 const & b) { return a.key < b.key; }
    friend bool operator>(CSortRef3 const & a, CSortRef3 const & b) { return a.key > b.key; }
    friend bool operator<=(CSortRef3 const & a, CSortRef3 const & b) { return a.key <= b.key; }
    friend bool operator>=(CSortRef3 const & a, CSortRef3 const & b) { return a.key >= b.key; }
    friend bool operator==(CSortRef3 const & a, CSortRef3 const & b)
    {
        return a.ref1 == b.ref1 && a.ref2 == b.ref2 && a.ref3 == b.ref3 && a.key == b.key;
    }
};

/// A vertex of a slice and a flag, to be found by equality of both.
struct CSliceVertFlag
{
    int vertex;
    int flag;

    friend bool operator==(CSliceVertFlag const & a, CSliceVertFlag const & b)
    {
        return a.vertex == b.vertex && a.flag == b.flag;
    }
};
