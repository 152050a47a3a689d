#pragma once

#include "Responder/SCommand.h"

/// Answers a mail for its recipient with the text of a template (RFC 3834): once a day for each sender; never a null or
/// robot sender, mail of lists or programs, mail that names the recipient neither in To nor in Cc, or mail of the
/// recipient itself. The reply gets the name of the command's output. Then deletes the mail unless it is kept; it
/// stays, too, on every failure. The template always stays.
///
/// What was done comes back in a few words; failures are exceptions.
const char* ReplyAutomatically(const SCommand& command);
