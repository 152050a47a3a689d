#pragma once

#include "Control/SOptions.h"

#include <string>
#include <vector>

/// What `tobixctl requeue` asks for.
struct SRequeueQuestion
{
    std::string strName;                 ///< of a mail in the error directory, or one set aside in the queue
    std::vector<std::string> recipients; ///< for whom; empty: for those who are not known to have it
    bool bConfirmed = false;             ///< nobody is asked
};

/// tobixctl requeue: gives a mail that has failed another chance. Answers the exit code; CControlError for what ends
/// the command.
int Requeue(const SOptions& options, const SRequeueQuestion& question);
