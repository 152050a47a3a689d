#include "Tobix/CDeletionList.h"

#include "Bex/CFile.h"
#include "Bex/CFileException.h"
#include "Bex/FrozenLine.h"
#include "Platform/Errors.h"

namespace {

constexpr char SOURCE_FILE[] = "Tobix/LocalAgent";
constexpr Bex::FrozenLine NOT_REMOVED_LINE = 433;

} // namespace

void CDeletionList::Add(const Bex::CSimpleString& strPath, const Platform::SFileIdentity& identity)
{
    m_entries.push_back({strPath, identity});
    m_paths.insert(m_entries.back().strPath.View());
}

bool CDeletionList::RemoveDelivered()
{
    bool bNewMail = false;
    for (auto entry = m_entries.begin(); entry != m_entries.end();) {
        const EOutcome outcome = Remove(*entry);
        if (outcome == EOutcome::Kept) {
            ++entry;
            continue;
        }
        bNewMail |= outcome == EOutcome::Replaced;
        m_paths.erase(entry->strPath.View());
        entry = m_entries.erase(entry);
    }
    return bNewMail;
}

CDeletionList::EOutcome CDeletionList::Remove(const SEntry& entry)
{
    try {
        return Bex::CFile::RemoveIfStill(entry.strPath, entry.identity) ? EOutcome::Gone : EOutcome::Replaced;
    } catch (const Bex::CFileException& exception) {
        if (exception.LibError() == Platform::LIB_NO_ENTRY)
            return EOutcome::Gone;
        Bex::LogCaught(exception, SOURCE_FILE, NOT_REMOVED_LINE);
        return EOutcome::Kept;
    }
}
