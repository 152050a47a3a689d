#pragma once

#include "Control/CDaemon.h"
#include "Control/SWaitingMail.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>

/// What the running daemon has in memory of some outgoing mails at a time. Used by one thread once the configuration is
/// loaded.
class CKnownMails
{
public:
    struct SKnown
    {
        std::string strState;  ///< "pending", "due", "waiting", "sending", "held back", "delivered", "bounce failed"
        int64_t iAttempts = 0; ///< since its start
    };

    /// Asks about these instead of those before, so many as one request may name. Without a daemon that answers it
    /// knows nothing from then on, which is told on standard error.
    void Ask(std::span<const SWaitingMail> mails);

    const SKnown* Find(std::string_view name) const; ///< of a file in the outgoing directory; null: not known
    /// When that mail will be tried again, in seconds since 1970-01-01 UTC; nothing when that is not known, or not to
    /// be.
    std::optional<int64_t> NextTry(const SKnown& known) const;

private:
    std::optional<nlohmann::json> Answer(const std::vector<std::string>& names);

    std::unordered_map<std::string, SKnown> m_mails;
    bool m_bGivenUp = false;
    int64_t m_iNow = 0;
    int64_t m_iNextRelease = 0; ///< of the waiting ones
};
