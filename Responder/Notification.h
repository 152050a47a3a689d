#pragma once

#include "Responder/SCommand.h"

/// Tells the sender of a mail that could not be delivered, or who else is named, with a multipart/report (RFC 6522) of
/// the report's text, the delivery status (RFC 3464) and what is asked for of the mail. Then deletes mail and report
/// unless they are kept; they stay, too, on every failure.
///
/// A mail from the null sender or from a bounce sender is never answered, and the mail is only disposed of. A report
/// that is missing or empty is made up for. A run that keeps the files leaves "REPORT.unsent" behind when it fails;
/// the run for the postmaster, which comes next, then does not delete what the sender was not told about.
///
/// The queue directory is that of tobix.cfg in the directory that MAILCONFIGDIR names. What was done comes back in a
/// few words; failures are exceptions.
const char* NotifySender(const SCommand& command);
