#pragma once

#include <string>
#include <string_view>

/// Why a mail could not be delivered, as far as the text of an error report tells. Empty: unknown.
struct SFailure
{
    std::string strRecipient;
    std::string strStatus; ///< RFC 3463, never empty
    std::string strDiagnosticType;
    std::string strDiagnostic;
    std::string strRemoteHost;

    static SFailure FromReport(std::string_view text);
    /// The message/delivery-status part's body (RFC 3464 2.1).
    std::string StatusText(std::string_view reportingHost) const;
};
