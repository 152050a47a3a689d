#pragma once

#include "Common/ErrorText.h"
#include "Control/EExit.h"

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
