#include "Bex/CDirectory.h"

#include "Bex/CFileException.h"
#include "Bex/FrozenLine.h"
#include "Platform/FileSystem.h"

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CDirectory";
constexpr FrozenLine NO_DIRECTORY_LINE = 118;

} // namespace

bool CDirectory::Exists(const CSimpleString& strPath)
{
    switch (Platform::KindOf(strPath.Text())) {
    case Platform::EPathKind::Directory:
        return true;
    case Platform::EPathKind::Missing:
        return false;
    case Platform::EPathKind::Failed:
        ThrowFileException(SOURCE_FILE, __LINE__);
    case Platform::EPathKind::File:
    case Platform::EPathKind::Other:
        break;
    }
    ThrowFileException(SOURCE_FILE, NO_DIRECTORY_LINE, Platform::LIB_EXISTS, Platform::SYS_FILE_EXISTS);
}

void CDirectory::Create(const CSimpleString& strPath)
{
    if (!Platform::CreateOneDirectory(strPath.Text()))
        ThrowFileException(SOURCE_FILE, __LINE__);
}

} // namespace Bex
