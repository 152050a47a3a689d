#include "Control/SMailboxCount.h"

#include "Bex/CFileFind.h"
#include "Bex/TextFunctions.h"
#include "Platform/FileIdentity.h"

#include <algorithm>

namespace {

constexpr int64_t NANOSECONDS = 1'000'000'000;

} // namespace

void SMailboxCount::AddFiles(const Bex::CSimpleString& strDirectory, const char* pszPattern)
{
    Platform::SFileIdentity file;
    Bex::CFileFind find;
    find.Open(Bex::JoinPath(strDirectory, pszPattern));
    while (find.Next()) {
        if (find.IsDirectory() || find.Name()[0] == '.' ||
            !Platform::IdentityOf(Bex::PathBelow(strDirectory, find.Name()).Text(), file))
            continue; // the last means that it has gone
        ++nMails;
        nBytes += static_cast<uint64_t>(file.iSize);
        iLastChange = std::max(iLastChange, file.iModified / NANOSECONDS);
    }
}

SMailboxCount SMailboxCount::Of(const Bex::CSimpleString& strDirectory)
{
    SMailboxCount count;
    Platform::SFileIdentity file;
    if (Platform::IdentityOf(strDirectory.Text(), file, Platform::ELinks::Follow))
        count.iLastChange = file.iModified / NANOSECONDS;
    count.AddFiles(strDirectory, "*.eml");
    for (const char* const pszFolder : {"Maildir/new", "Maildir/cur"})
        count.AddFiles(Bex::JoinPath(strDirectory, pszFolder), "*");
    return count;
}
