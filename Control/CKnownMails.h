#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

/// What the running daemon has in memory of outgoing mail. Used by one thread.
class CKnownMails
{
public:
    struct SKnown
    {
        std::string strState;  ///< "pending", "due", "waiting", "sending", "held back", "delivered", "bounce failed"
        int64_t iAttempts = 0; ///< since its start
    };

    /// Without a daemon that answers it knows nothing, which is told on standard error.
    static CKnownMails Ask();

    bool IsThere() const { return m_bThere; }        ///< a daemon has answered
    const SKnown* Find(std::string_view name) const; ///< of a file in the outgoing directory; null: not known
    /// When that mail will be tried again, in seconds since 1970-01-01 UTC; nothing when that is not known, or not to
    /// be.
    std::optional<int64_t> NextTry(const SKnown& known) const;

private:
    std::unordered_map<std::string, SKnown> m_mails;
    bool m_bThere = false;
    int64_t m_iNow = 0;
    int64_t m_iNextRelease = 0; ///< of the waiting ones
};
