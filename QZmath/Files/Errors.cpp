// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Errors.h>

namespace QZmath
{

namespace
{

// A last guard: what is quoted has been escaped and cut before.
std::string asSentence(std::string const & sentence)
{
    return sentence.empty() ? "no reason is known" : VsUt::escaped(sentence);
}

} // namespace

InputError::InputError(std::string const & sentence) : std::runtime_error(asSentence(sentence)) {}
InputError::~InputError() = default;

OutputError::OutputError(std::string const & sentence) : std::runtime_error(asSentence(sentence)) {}
OutputError::~OutputError() = default;

} // namespace QZmath
