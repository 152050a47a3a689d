#pragma once

#include "Control/SOptions.h"

#include <string>

/// tobixctl metrics: what the daemon has counted and what waits in the directories, in the text format of OpenMetrics.
/// With a path that file is replaced at once, so that no half of it is ever read. Without a daemon the rest is told.
/// Answers the exit code; CControlError for what ends the command.
int Metrics(const SOptions& options, const std::string& strOutput);
