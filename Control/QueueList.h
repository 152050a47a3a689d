#pragma once

#include "Control/SOptions.h"

#include <cstddef>
#include <string>

/// What `tobixctl queue` asks for.
struct SQueueQuestion
{
    std::string strFrom; ///< a pattern; empty: any
    std::string strTo;
    std::string strOlder; ///< a span of time; empty: any
    size_t nLimit = 1000; ///< mails shown at most; 0: all
};

/// tobixctl queue: what waits in the queue and the outgoing directory, and what is held there. Answers the exit code;
/// CControlError for what ends the command.
int ListQueue(const SOptions& options, const SQueueQuestion& question);
