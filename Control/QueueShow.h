#pragma once

#include "Control/SOptions.h"

#include <string>

/// tobixctl queue show: one waiting mail with its headers, its error report and the log's lines about it. Answers the
/// exit code; CControlError for what ends the command.
int ShowQueued(const SOptions& options, const std::string& strName);
