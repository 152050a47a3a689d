#include "Tobix/StaleFiles.h"

#include "Bex/CFile.h"
#include "Bex/CFileException.h"
#include "Bex/CFileFind.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"

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

} // namespace

void RemoveStaleFiles(const Bex::CSimpleString& strDirectory)
{
    try {
        Bex::CFileFind find;
        if (!find.Open(Bex::JoinPath(strDirectory, ".*.eml.tmp")))
            return;
        while (find.Next()) {
            if (!find.IsDirectory())
                RemoveUnlessInUse(Bex::PathBelow(strDirectory, find.Name()));
        }
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__);
    }
}
