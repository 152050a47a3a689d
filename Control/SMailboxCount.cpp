#include "Control/SMailboxCount.h"

#include "Bex/CFileFind.h"
#include "Bex/TextFunctions.h"
#include "Platform/FileIdentity.h"

#include <algorithm>

namespace {

constexpr int64_t NANOSECONDS = 1'000'000'000;

} // namespace

SMailboxCount SMailboxCount::Of(const Bex::CSimpleString& strDirectory)
{
    SMailboxCount count;
    Platform::SFileIdentity file;
    if (Platform::IdentityOf(strDirectory.Text(), file, Platform::ELinks::Follow))
        count.iLastChange = file.iModified / NANOSECONDS;
    Bex::CFileFind find;
    find.Open(Bex::JoinPath(strDirectory, "*.eml"));
    while (find.Next()) {
        if (find.IsDirectory() || !Platform::IdentityOf(Bex::PathBelow(strDirectory, find.Name()).Text(), file))
            continue; // it has gone
        ++count.nMails;
        count.nBytes += static_cast<uint64_t>(file.iSize);
        count.iLastChange = std::max(count.iLastChange, file.iModified / NANOSECONDS);
    }
    return count;
}
