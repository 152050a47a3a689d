#pragma once

#include "Control/CKnownMails.h"
#include "Control/SWaitingMail.h"

#include <nlohmann/json.hpp>
#include <optional>

/// What becomes of a waiting mail, by its file and by what the daemon knows. A value.
struct SWaitingState
{
    std::string strText;             ///< "waiting", "held", "failed", "empty", or the daemon's word
    std::optional<int64_t> attempts; ///< since the daemon's start; nothing: not known, or none is made
    std::optional<int64_t> nextTry;  ///< seconds since 1970-01-01 UTC

    static SWaitingState Of(const SWaitingMail& mail, const CKnownMails& known);
};

nlohmann::ordered_json JsonOf(const SWaitingMail& mail, const SWaitingState& state);
