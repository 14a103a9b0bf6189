// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace QZmath
{

/// What the columns of a text file are.
struct TextColumns
{
    enum Role : int
    {
        none = -1, ///< not wanted
        position = 0,
        normal = 3,
        color = 6,
        boundary = 9,
        roles = 10
    };

    std::vector<int> roleOf; ///< for each column, a role or, of three, one of the two behind it

    bool has(int role) const;
    bool hasThree(int role) const { return has(role) && has(role + 1) && has(role + 2); }
    /// Columns up to the last one that is wanted.
    std::size_t wanted() const;
    /// The names, separated by commas.
    std::string text() const;

    /// What somebody has said. Throws `InputError` for unknown names, names said twice, and for coordinates,
    /// normals or colours that are not complete.
    static TextColumns fromNames(std::string const & names);
    /// What a line of names in a file says: words that are not known are not wanted. Without columns unless
    /// x, y and z are there once; in a comment, which may be prose, side by side.
    static TextColumns fromHeader(std::vector<std::string_view> const & words, bool isComment);
    /// Whether a line of so many columns can be a point: empty ones at its end may be missing.
    bool fits(std::size_t columns) const
    {
        return !roleOf.empty() && columns >= wanted() && columns <= roleOf.size();
    }
};

} // namespace QZmath
