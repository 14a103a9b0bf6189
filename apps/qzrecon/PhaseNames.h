// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace qz_recon
{

/// What the display calls a phase of the library.
inline std::string plainPhaseName(std::string const & name)
{
    struct Name
    {
        char const * inLibrary;
        char const * plain;
    };
    static Name const names[] = {{"tree", "octree"},
                                 {"grad_basis", "basis"},
                                 {"density weights", "density"},
                                 {"grad_div", "normal field"},
                                 {"right_part", "right side"},
                                 {"matrix", "matrix"},
                                 {"matrix+right_part", "matrix and right side"},
                                 {"update right part", "right side"},
                                 {"iso-surface", "surface"}};
    for (Name const & one : names) {
        if (name == one.inLibrary)
            return one.plain;
    }
    return name;
}

} // namespace qz_recon
