#pragma once

#include "Control/SOptions.h"

#include <string>

/// What `tobixctl route` asks for.
struct SRouteQuestion
{
    std::string strRecipient;
    std::string strSender; ///< empty: the null sender, or the mail's
    std::string strMail;   ///< the file of a mail for which the question is; empty: none
};

/// tobixctl route: tells what the daemon would do with a mail for an address, by the code that decides there. Nothing
/// is delivered. Answers the exit code, EExit::Wrong when the mail would fail; CControlError for what ends the command.
int Route(const SOptions& options, const SRouteQuestion& question);
