#include "Tobix/StaleFiles.h"

#include "Bex/CFile.h"
#include "Bex/CFileException.h"
#include "Bex/CFileFind.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Platform/FileSystem.h"

namespace {

constexpr char SOURCE_FILE[] = "Tobix/StaleFiles";

void RemoveUnlessInUse(const Bex::CSimpleString& strPath)
{
    try {
        if (Bex::CFile::RemoveUnlessInUse(strPath))
            Bex::LogInfo(Bex::MainLog(), "removed unfinished file \"%s\"", strPath.Text());
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__);
    }
}

/// Calls for the path of each entry.
template <class TTake>
void ForEachEntry(const Bex::CSimpleString& strDirectory, const char* pszPattern, TTake Take)
{
    try {
        Bex::CFileFind find;
        if (!find.Open(Bex::JoinPath(strDirectory, pszPattern)))
            return;
        while (find.Next())
            Take(Bex::PathBelow(strDirectory, find.Name()));
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__);
    }
}

bool IsDirectory(const Bex::CSimpleString& strPath)
{
    return Platform::KindOf(strPath.Text(), false) == Platform::EPathKind::Directory;
}

} // namespace

void RemoveStaleFiles(const Bex::CSimpleString& strDirectory)
{
    ForEachEntry(strDirectory, ".*.eml.tmp", [](const Bex::CSimpleString& strPath) {
        if (!IsDirectory(strPath))
            RemoveUnlessInUse(strPath);
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
