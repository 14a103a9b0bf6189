// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>
#include <string>

namespace qz_io
{

/// The input cannot be used; the text is one sentence for the user.
class InputError : public std::runtime_error
{
public:
    explicit InputError(std::string const & sentence) : std::runtime_error(sentence) {}
};

/// The output could not be written; the text is one sentence for the user.
class OutputError : public std::runtime_error
{
public:
    explicit OutputError(std::string const & sentence) : std::runtime_error(sentence) {}
};

} // namespace qz_io
