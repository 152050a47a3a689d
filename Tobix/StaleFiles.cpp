#include "Tobix/StaleFiles.h"

#include "Bex/CFile.h"
#include "Bex/CFileException.h"
#include "Bex/CFileFind.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"

namespace {

constexpr char SOURCE_FILE[] = "Tobix/StaleFiles";

/// While this process has the file to itself, nobody is writing it. Opened for reading: only a reader is told of
/// writers that do not lock.
void RemoveUnlessInUse(const Bex::CSimpleString& strPath)
{
    try {
        Bex::CFile file;
        file.Open(strPath,
                  Bex::CFile::modeRead | Bex::CFile::shareExclusive | Bex::CFile::typeBinary | Bex::CFile::onlyRegular);
        Bex::CFile::Remove(strPath);
        Bex::LogInfo(Bex::MainLog(), "removed unfinished file \"%s\"", strPath.Text());
    } catch (const Bex::CFileException& exception) {
        if (!Platform::IsBusy(exception.Error()))
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
