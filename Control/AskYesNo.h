#pragma once

#include "Control/CTerminal.h"

#include <string>

/// Goes on when somebody at the keyboard says yes to the question; else raises CControlError, EExit::Refused. Without a
/// keyboard the hint says what the command line has to hold.
void AskYesNo(const CTerminal& terminal, const std::string& strQuestion, const char* pszHint);
