#pragma once

#include "Inject/CInput.h"

#include <string>
#include <string_view>
#include <vector>

/// The header block of a mail that is handed in (RFC 5322 2.2): its fields as they were written, but those that nobody
/// may bring along and those that hide recipients. Used by one thread.
class CHeader
{
public:
    /// Reads up to the body. CRefusal for a block beyond what the daemon reads, one with a NUL, or no mail at all.
    explicit CHeader(CInput& input);

    bool Has(std::string_view name) const;
    /// The recipients that To, Cc and Bcc name, or their Resent namesakes where there are such (RFC 5322 3.6.6).
    std::vector<std::string> Recipients() const;
    std::string Text() const; ///< lines end with CR LF; without the blank line
    /// What was read of the body: of a mail whose first line without a field is no blank one.
    const std::string& BodyStart() const { return m_strBodyStart; }

private:
    struct SField
    {
        std::string strName;
        std::string strText; ///< with its folds and its end
    };

    bool TakeLine(const std::string& strLine);
    bool IsAnyResent() const;

    std::vector<SField> m_fields;
    std::string m_strBodyStart;
};
