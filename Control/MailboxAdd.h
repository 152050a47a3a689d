#pragma once

#include "Control/SOptions.h"

#include <string>
#include <string_view>

/// tobixctl mailbox add: makes the mailbox of a new local user, given as "ann" or "ann@example.org", and makes the
/// domain local when it is not yet. As root the mailbox belongs to whoever owns the directory of the mailboxes. A
/// running daemon is asked to take up the user. Nothing that is there already is changed, but the table of domains gets
/// a line.
///
/// No file "password" is made: programs that read mail let in whom it names, and an empty one might let in anybody.
/// Answers the exit code; CControlError for what ends the command.
int AddMailbox(const SOptions& options, const std::string& strAddress);

/// Why a mailbox cannot have that name; empty: it can. In lower case, as users are named.
std::string NameFault(std::string_view name, char cDelimiter);
std::string DomainFault(std::string_view domain); ///< likewise of a domain
