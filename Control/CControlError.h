#pragma once

#include "Control/EExit.h"
#include "Platform/Errors.h"

#include <stdexcept>
#include <string>

/// Ends a command: the line for the administrator, and the exit code. A value.
class CControlError : public std::runtime_error
{
public:
    CControlError(EExit exit, const std::string& strText) : std::runtime_error(strText), m_exit(exit) {}

    EExit Exit() const { return m_exit; }

private:
    EExit m_exit;
};

/// What the failure of a platform operation means, in plain words, such as "no such file or directory".
std::string ErrorText(Platform::SError error);
