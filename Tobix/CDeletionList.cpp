#include "Tobix/CDeletionList.h"

#include "Bex/CFileException.h"
#include "Bex/FrozenLine.h"
#include "Platform/Errors.h"

#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "Tobix/LocalAgent";
constexpr Bex::FrozenLine NOT_REMOVED_LINE = 433;

} // namespace

void CDeletionList::Add(std::unique_ptr<CHeldMailFile> pFile)
{
    m_paths.insert(pFile->Name().View());
    m_entries.push_back(std::move(pFile));
    if (m_entries.size() > MOST_HELD)
        m_entries.back()->LetGo();
}

bool CDeletionList::RemoveDelivered()
{
    bool bNewMail = false;
    for (auto entry = m_entries.begin(); entry != m_entries.end();) {
        const EOutcome outcome = Remove(**entry);
        if (outcome == EOutcome::Kept) {
            ++entry;
            continue;
        }
        bNewMail |= outcome == EOutcome::Replaced;
        m_paths.erase((*entry)->Name().View());
        entry = m_entries.erase(entry);
    }
    return bNewMail;
}

CDeletionList::EOutcome CDeletionList::Remove(CHeldMailFile& file)
{
    try {
        return file.RemoveIfStill() ? EOutcome::Gone : EOutcome::Replaced;
    } catch (const Bex::CFileException& exception) {
        if (exception.LibError() == Platform::LIB_NO_ENTRY)
            return EOutcome::Gone;
        Bex::LogCaught(exception, SOURCE_FILE, NOT_REMOVED_LINE);
        return EOutcome::Kept;
    }
}
