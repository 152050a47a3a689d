#include "Platform/OverwriteInPlace.h"

#include "Platform/CFileHandle.h"

#include <algorithm>
#include <string>
#include <sys/stat.h>

namespace Platform {

namespace {

constexpr size_t SECTOR_BYTES = 512;

/// Who has another name of the file, a backup maybe, relies on its content.
bool HasOneName(const CFileHandle& file)
{
    struct stat status
    {};
    return fstat(file.NativeHandle(), &status) == 0 && status.st_nlink == 1;
}

} // namespace

bool OverwriteInPlace(const char* pszPath, std::string_view content, SFileIdentity& written)
{
    CFileHandle file;
    if (!file.Open(pszPath, {.access = EAccess::ReadWrite, .share = EShare::Exclusive, .bOnlyRegular = true}) ||
        !HasOneName(file) || file.Size() != static_cast<int64_t>(content.size()))
        return false;
    std::string strPresent(content.size(), '\0');
    if (file.Read(strPresent.data(), strPresent.size()) != static_cast<int64_t>(content.size()))
        return false;
    const auto first = std::mismatch(content.begin(), content.end(), strPresent.begin()).first;
    const auto last = std::mismatch(content.rbegin(), content.rend(), strPresent.rbegin()).first;
    if (first != content.end()) {
        const std::string_view changed(first, last.base());
        const auto nStart = static_cast<size_t>(first - content.begin());
        if (nStart / SECTOR_BYTES != (nStart + changed.size() - 1) / SECTOR_BYTES ||
            file.Seek(static_cast<int64_t>(nStart), ESeekFrom::Begin) < 0 ||
            file.Write(changed.data(), changed.size()) < 0)
            return false;
    }
    return file.Identity(written) && file.Close();
}

} // namespace Platform
