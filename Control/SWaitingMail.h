#pragma once

#include "Common/CMail.h"
#include "Control/SMailName.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// A mail that waits, as its file tells it to somebody who only looks. A value.
struct SWaitingMail
{
    SMailName name;
    int64_t iCreated = 0; ///< seconds since 1970-01-01 UTC
    int64_t iSize = 0;    ///< bytes
    std::string strSender{};
    std::string strMessageID{}; ///< without angle brackets
    std::vector<std::string> recipients{};
    bool bMoreRecipients = false; ///< there may be others: the header block goes on where the reading ended
    std::string strError{};       ///< why its last attempt failed, or why it cannot be read

    /// Nothing when the file has gone. A file that cannot be read is told as an error of the mail.
    static std::optional<SWaitingMail> Look(const SMailName& name, size_t nHeaderBytes = USUAL_HEADER);

    int64_t Age() const;       ///< seconds; never negative
    bool IsUnfinished() const; ///< empty: somebody is about to write it

    static constexpr size_t USUAL_HEADER = 4096;
};

/// Which of them; empty patterns match every mail. Addresses are compared as Bex::WildcardMatch does.
struct SMailFilter
{
    std::string strFrom{};
    std::string strTo{};     ///< of any recipient
    int64_t iOlderThan = -1; ///< seconds

    bool Matches(const SWaitingMail& mail) const;
};

/// Visits the mails of a directory, in order of their names, until the visitor answers false. Files may come and go
/// meanwhile. Only the names of all are in memory. CControlError when it cannot be listed.
void ForEachMailFile(EPlace place, const std::function<bool(SMailName)>& Visit);
/// Likewise those that the filter matches, and looks at them.
void ForEachWaiting(EPlace place, const SMailFilter& filter, const std::function<bool(SWaitingMail)>& Visit);

/// The mail's header fields out of the bytes with which its file begins, as the daemon understands them.
CMail MailOf(std::string_view bytes);
/// In one line, out of an error report.
std::string LastErrorIn(std::string_view report);
