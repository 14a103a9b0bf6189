// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>

#include <exception>
#include <string>

namespace VolTr
{

/// A reconstruction failed; `what()` is one of the texts that `CVolumetricTriangulator::run` lists.
class QZMATH_API CVolTriangulationError : public std::exception
{
public:
    explicit CVolTriangulationError(char const * text);
    ~CVolTriangulationError() override;
    char const * what() const noexcept override;

private:
    std::string m_text;
};

} // namespace VolTr
