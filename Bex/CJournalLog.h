#pragma once

#include "Bex/ILogDestination.h"
#include "Platform/CJournal.h"

#include <atomic>
#include <memory>

namespace Bex {

/// Copies what goes to another destination to the system's journal, with the mail that each line is about. Any thread.
///
/// TOBIX_MAIL holds what the mail is known by: the names of its files, in the queue and going out, and its Message-ID
/// in angle brackets, each a field of its own; TOBIX_FROM and TOBIX_TO are its envelope, as it came and as it goes on.
/// The journal never holds a writer up: how many lines it did not take is told by a line of its own once it takes some
/// again.
class CJournalLog : public ILogDestination
{
public:
    CJournalLog(std::shared_ptr<ILogDestination> pOther, std::shared_ptr<Platform::CJournal> pJournal,
                int iFacilityTimes8);
    void Write(int iLevel, const char* pszText, unsigned dwReserved) override;
    void Flush() override { m_pOther->Flush(); }

private:
    void Copy(int iLevel, std::string_view text);
    bool Send(int iLevel, std::string_view text) const;

    std::shared_ptr<ILogDestination> m_pOther;
    std::shared_ptr<Platform::CJournal> m_pJournal;
    int m_iFacilityTimes8;
    std::atomic<unsigned> m_nLost = 0;
};

} // namespace Bex
