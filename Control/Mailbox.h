#pragma once

#include "Control/SOptions.h"

#include <string>

/// tobixctl mailbox: the local users' mailboxes. Each answers the exit code; CControlError for what ends the command.

int ListMailboxes(const SOptions& options);
int ShowMailbox(const SOptions& options, const std::string& strUser); ///< or an address that leads to one
