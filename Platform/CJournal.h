#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <string_view>

namespace Platform {

/// Sends entries to the system's journal, which keeps fields beside a line's text and finds entries by them. Any
/// thread.
///
/// The journal holds few entries that it has not read yet. It is waited for after a burst, but in the long run no more
/// than a fiftieth of the time, and a journal that is stuck costs 20 ms more: then what it cannot take at once is lost.
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
    bool Send(std::span<const SField> fields);

    /// Whether the service manager has started this very process, so that its lines are looked for in the journal.
    static bool IsExpected();
    static bool TakesStandardError(); ///< what goes to standard error is an entry already

private:
    bool SendPatiently(const std::function<bool(bool)>& Send);

    std::string m_strSocket;
    int m_iDescriptor;
    std::mutex m_waiting; ///< around what follows; one waits at a time
    int64_t m_iMicrosLeft;
    uint64_t m_nGivenTicks = 0; ///< when m_iMicrosLeft was raised
};

} // namespace Platform
