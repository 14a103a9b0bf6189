// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/Export.h>
#include <QZsys/Messages.h>

#include <stdexcept>
#include <string>

namespace QZmath
{

/// The input cannot be used; `what()` is one sentence for the user, which names the remedy where there is
/// one. Never empty, and free of control characters whatever the input holds.
class QZMATH_FILES_API InputError : public std::runtime_error
{
public:
    explicit InputError(std::string const & sentence);
    ~InputError() override;
};

/// The output could not be written; `what()` is one sentence for the user, as that of `InputError`.
class QZMATH_FILES_API OutputError : public std::runtime_error
{
public:
    explicit OutputError(std::string const & sentence);
    ~OutputError() override;
};

/// Text from outside in a form that may stand in a message: escaped, and cut to 80 characters.
using VsUt::quotable;

} // namespace QZmath
