#pragma once

#include "Control/SOptions.h"

#include <string>
#include <vector>

/// Which mail a command is about: names, patterns of addresses, or all.
struct SMailSelection
{
    std::vector<std::string> names;
    std::string strFrom;
    std::string strTo;
    bool bAll = false;
    bool bConfirmed = false; ///< nobody is asked
};

/// The commands that do something with waiting mail. Each answers the exit code: EExit::Refused for a mail in delivery;
/// CControlError for what ends the command before anything is done.

int RetryMail(const SOptions& options, const SMailSelection& selection);   ///< outgoing mail, by the daemon
int HoldMail(const SOptions& options, const SMailSelection& selection);    ///< until it is released
int ReleaseMail(const SOptions& options, const SMailSelection& selection); ///< needs no daemon
int BounceMail(const SOptions& options, const SMailSelection& selection);  ///< outgoing mail, by the daemon
int RemoveMail(const SOptions& options, const SMailSelection& selection);  ///< for good; asks
