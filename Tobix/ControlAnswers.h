#pragma once

#include "Tobix/COutgoingFiles.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// A value.
struct STableView
{
    const char* pszName;
    std::string strFile;
    size_t nEntries;
};

/// What the commands see of the running daemon. A value, made for one command.
struct SDaemonView
{
    int64_t iRunningSince = 0; ///< seconds since 1970-01-01 UTC
    bool bPaused = false;
    bool bShortOfSpace = false; ///< no mail is taken from the queue until there is more
    std::string strMissing;     ///< what the last restart could not start, in words
    std::string strQueueDirectory;
    std::string strOutgoingDirectory;
    std::vector<STableView> tables;
    size_t nQueue = 0;                         ///< found at the last listing and not yet taken
    std::shared_ptr<COutgoingFiles> pOutgoing; ///< none: nothing is sent
    int64_t iNextReleaseIn = 0;                ///< seconds until mail that waits is tried again
};

/// The steps that only the service itself can take; both may be called on any thread.
struct SDaemonHooks
{
    std::function<bool(SDaemonView&)> Look;            ///< false while it restarts or reads large tables
    std::function<std::optional<bool>()> RebuildUsers; ///< whether they could be listed; likewise none
};

inline constexpr size_t MOST_NAMES_ASKED = 1000; ///< in one request

/// Answers one command of tobixctl: a line of JSON for a line of JSON. What is wrong with the request is told in the
/// answer's "error".
std::string AnswerCommand(const std::string& strRequest, const SDaemonHooks& hooks);
