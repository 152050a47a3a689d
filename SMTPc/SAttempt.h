#pragma once

#include "Platform/Errors.h"

/// What a delivery attempt came to, by the number that logs tell.
enum class EVerdict : int {
    Delivered = 0,
    FileBusy = 1,         ///< somebody is at the mail file
    ConnectionFailed = 8, ///< socket or TLS error with the last target
    Temporary = 9,
    Permanent = 19,
    NotPrepared = 29, ///< the mail file cannot be read or names no recipient
    Stopped = 31
};

/// What became of the mail file.
enum class EMailFile {
    Stays, ///< also that of a delivered mail which could not be removed: it must not be sent again
    Gone   ///< another mail may have its name by now
};

/// The outcome of one delivery attempt. A value.
struct SAttempt
{
    EVerdict verdict;
    EMailFile file = EMailFile::Stays;
    Platform::SError error = {}; ///< why the mail file could not be read, or what was short
};
