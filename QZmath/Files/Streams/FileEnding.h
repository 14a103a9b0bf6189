// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace QZmath
{

/// Ending of the file's name with the dot, in lower case; empty when there is none.
inline std::string fileEnding(std::string const & path)
{
    std::size_t const slash = path.rfind('/');
    std::size_t const nameBegin = slash == std::string::npos ? 0 : slash + 1;
    std::size_t const dot = path.rfind('.');
    if (dot == std::string::npos || dot <= nameBegin)
        return std::string();
    std::string ending = path.substr(dot);
    for (char & letter : ending)
        if (letter >= 'A' && letter <= 'Z')
            letter = static_cast<char>(letter - 'A' + 'a');
    return ending;
}

} // namespace QZmath
