// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/Export.h>

#include <string>
#include <string_view>

namespace VsUt
{

/// A text in a form that a terminal shows and does not obey: control characters, those that turn the
/// direction of writing, and bytes that are not UTF-8 become `\\xNN`.
QZSYS_API std::string escaped(std::string_view text);

/// Text from outside, such as a file's name or a word out of it, in a form that may stand in a message:
/// escaped, and of more than 80 characters the middle becomes "...".
QZSYS_API std::string quotable(std::string_view text);

/// What the system says about an error number; never empty.
QZSYS_API std::string systemReason(int error);

} // namespace VsUt
