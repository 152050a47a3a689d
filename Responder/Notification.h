#pragma once

#include "Responder/SCommand.h"

/// Tells the sender of a mail that could not be delivered, or who else is named, with a multipart/report (RFC 6522) of
/// the report's text, the delivery status (RFC 3464) and what is asked for of the mail. Then deletes mail and report
/// unless they are kept; they stay, too, on every failure.
///
/// A mail from the null sender or from a bounce sender is never answered, and the mail is only disposed of. A mail
/// whose sender is no address that can be written to is told to Postmaster.To; with none, it goes to the error
/// directory, and so does a report to the postmaster that came back. A report that is missing, empty or a directory is
/// made up for. Who has been told is marked (CToldMark): nobody is told twice of a mail that a run left, and the run
/// for the postmaster, which comes after one that keeps the files, deletes nothing that the sender was not told about.
///
/// The directories are those of the configuration that the daemon hands over, else of tobix.cfg in the directory that
/// MAILCONFIGDIR names. What was done comes back in a few words; failures are exceptions.
const char* NotifySender(const SCommand& command);
