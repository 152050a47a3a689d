#pragma once

#include "Control/SOptions.h"

/// tobixctl status: what the running daemon says of itself. Answers the exit code, EExit::Wrong when a thread does not
/// get on or something is missing; CControlError for what ends the command.
int Status(const SOptions& options);
