// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

namespace QZmath::Viewing
{

/// Appends bytes as text of 64 letters, four for three bytes, with = up to a multiple of four.
void appendBase64(std::string & text, unsigned char const * bytes, std::size_t count);

} // namespace QZmath::Viewing
