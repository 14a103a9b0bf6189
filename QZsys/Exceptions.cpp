// SPDX-License-Identifier: Apache-2.0
#include <QZsys/Exceptions.h>

#include <utility>

CVescaException::CVescaException(std::string text) : m_text(std::move(text)) {}
CVescaException::~CVescaException() = default;
char const * CVescaException::what() const noexcept { return m_text.c_str(); }

CUserIntrException::CUserIntrException(std::string text) : m_text(std::move(text)) {}
CUserIntrException::~CUserIntrException() = default;
char const * CUserIntrException::what() const noexcept { return m_text.c_str(); }

CVescaTextException::CVescaTextException(std::string text) : m_text(std::move(text)) {}
CVescaTextException::~CVescaTextException() = default;
char const * CVescaTextException::what() const noexcept { return m_text.c_str(); }

IVescaWarning::~IVescaWarning() = default;
