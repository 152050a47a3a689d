#pragma once

#include "Control/SOptions.h"

#include <string>

/// tobixctl check: reads the configuration and every table as the daemon does, and tells what is wrong with them. As
/// root it looks as the user does whom the daemon runs as. Answers the exit code.
int Check(const SOptions& options, const std::string& strUser); ///< empty: the service's own user, where there is one
