#include "Tobix/StaleFiles.h"

#include "Bex/CFile.h"
#include "Bex/CFileException.h"
#include "Bex/CFileFind.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/CToldMark.h"
#include "Platform/Clock.h"
#include "Platform/FileIdentity.h"
#include "Platform/FileSystem.h"

#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "Tobix/StaleFiles";

void RemoveUnlessInUse(const Bex::CSimpleString& strPath, const char* pszKind)
{
    try {
        if (Bex::CFile::RemoveUnlessInUse(strPath))
            Bex::LogInfo(Bex::MainLog(), "removed %s \"%s\"", pszKind, strPath.Text());
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__);
    }
}

/// Calls for the path of each entry; false when the directory cannot be listed.
template <class TTake>
bool ForEachEntry(const Bex::CSimpleString& strDirectory, const char* pszPattern, TTake Take)
{
    try {
        Bex::CFileFind find;
        if (!find.Open(Bex::JoinPath(strDirectory, pszPattern)))
            return false;
        while (find.Next())
            Take(Bex::PathBelow(strDirectory, find.Name()));
        return true;
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__);
        return false;
    }
}

bool IsDirectory(const Bex::CSimpleString& strPath)
{
    return Platform::KindOf(strPath.Text(), false) == Platform::EPathKind::Directory;
}

/// Of those marks that were found; one that is set later has its mail. None while a mail cannot be looked at.
void RemoveStaleMarks(const Bex::CSimpleString& strDirectory, std::set<std::string> marks)
{
    bool bAllSeen = true;
    const bool bListed = ForEachEntry(strDirectory, "*", [&](const Bex::CSimpleString& strPath) {
        Platform::SFileIdentity identity;
        if (!Platform::IdentityOf(strPath.Text(), identity)) {
            bAllSeen &= Platform::LastError().iLibError == Platform::LIB_NO_ENTRY;
            return;
        }
        for (const auto who : {CToldMark::EWho::Sender, CToldMark::EWho::Postmaster})
            marks.erase(CToldMark::Name(identity, who).Text());
    });
    if (!bListed || !bAllSeen)
        return;
    for (const std::string& strMark : marks)
        RemoveUnlessInUse(Bex::PathBelow(strDirectory, strMark), "mark of a mail that is gone");
}

} // namespace

void RemoveStaleFiles(const Bex::CSimpleString& strDirectory)
{
    static constexpr std::string_view UNFINISHED = ".tmp";
    std::set<std::string> marks;
    ForEachEntry(strDirectory, ".*", [&marks](const Bex::CSimpleString& strPath) {
        if (IsDirectory(strPath))
            return;
        std::string_view name = Bex::NameOf(strPath);
        const bool bUnfinished = name.ends_with(UNFINISHED);
        name.remove_suffix(bUnfinished ? UNFINISHED.size() : 0);
        const bool bMark = CToldMark::IsName(name);
        if (bUnfinished && (bMark || name.ends_with(".eml") || name.ends_with(".eml.err")))
            RemoveUnlessInUse(strPath, "unfinished file");
        else if (bMark)
            marks.emplace(name);
    });
    if (!marks.empty())
        RemoveStaleMarks(strDirectory, std::move(marks));
}

void RemoveOldFiles(const Bex::CSimpleString& strDirectory, int64_t iSeconds, const char* pszPattern)
{
    const int64_t iOld = Platform::NowMicros() - iSeconds * 1'000'000;
    ForEachEntry(strDirectory, pszPattern, [iOld](const Bex::CSimpleString& strPath) {
        Platform::SFileIdentity file;
        if (Platform::IdentityOf(strPath.Text(), file) && file.iModified / 1000 < iOld && !IsDirectory(strPath))
            RemoveUnlessInUse(strPath, "unfinished file");
    });
}

void RemoveStaleFilesBelow(const Bex::CSimpleString& strDirectory)
{
    if (strDirectory.IsEmpty())
        return;
    ForEachEntry(strDirectory, "*", [](const Bex::CSimpleString& strPath) {
        if (IsDirectory(strPath))
            RemoveStaleFiles(strPath);
    });
}
