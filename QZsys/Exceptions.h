// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZsys/Export.h>

#include <exception>
#include <string>

/// General failure of the system, with a text for the log. Thread-safe like every standard exception.
class QZSYS_API CVescaException : public std::exception
{
public:
    explicit CVescaException(std::string text = "Vesca exception");
    ~CVescaException() override;
    char const * what() const noexcept override;

private:
    std::string m_text;
};

/// The user asked a running operation to stop. Not a `CVescaException`, so that a handler of failures does
/// not take a cancelled operation for a failed one.
class QZSYS_API CUserIntrException : public std::exception
{
public:
    explicit CUserIntrException(std::string text);
    ~CUserIntrException() override;
    char const * what() const noexcept override;

private:
    std::string m_text;
};

/// A plain `std::exception` with a text: what is thrown where callers distinguish nothing further.
class QZSYS_API CVescaTextException : public std::exception
{
public:
    explicit CVescaTextException(std::string text);
    ~CVescaTextException() override;
    char const * what() const noexcept override;

private:
    std::string m_text;
};

/// A non-fatal finding that an operation reports and goes on.
class QZSYS_API IVescaWarning
{
public:
    virtual ~IVescaWarning();
    virtual std::wstring getMessage() const = 0;
};
