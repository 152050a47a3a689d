#pragma once

#include <span>
#include <string>
#include <string_view>

namespace Platform {

/// Sends entries to the system's journal, which keeps fields beside a line's text and finds entries by them. Never
/// waits: what the journal cannot take at once is lost. Any thread.
class CJournal
{
public:
    struct SField
    {
        std::string_view name;  ///< capital letters, digits and underscores
        std::string_view value; ///< any bytes
    };

    CJournal(); ///< the system's, or the socket that TOBIX_JOURNAL_SOCKET names
    ~CJournal();
    CJournal(const CJournal&) = delete;
    CJournal& operator=(const CJournal&) = delete;

    /// One entry; a name may come several times. False when it is lost: LastError.
    bool Send(std::span<const SField> fields) const;

    /// Whether the service manager has started this very process, so that its lines are looked for in the journal.
    static bool IsExpected();
    static bool TakesStandardError(); ///< what goes to standard error is an entry already

private:
    std::string m_strSocket;
    int m_iDescriptor;
};

} // namespace Platform
