#include "Common/ErrorText.h"

#include <algorithm>
#include <iterator>

namespace {

struct SText
{
    uint32_t dwSysError;
    const char* pszText;
};

constexpr SText TEXTS[] = {
    {Platform::SYS_FILE_NOT_FOUND, "no such file or directory"},
    {Platform::SYS_PATH_NOT_FOUND, "a part of the path is no directory"},
    {Platform::SYS_TOO_MANY_OPEN, "too many open files"},
    {Platform::SYS_ACCESS_DENIED, "permission denied"},
    {Platform::SYS_NO_MEMORY, "not enough memory"},
    {Platform::SYS_WRITE_PROTECT, "the file system is read-only"},
    {Platform::SYS_IO, "input/output error"},
    {Platform::SYS_SHARING_VIOLATION, "in use by another program"},
    {Platform::SYS_FILE_EXISTS, "something else has that name"},
    {Platform::SYS_BROKEN_PIPE, "the other side closed the connection"},
    {Platform::SYS_DISK_FULL, "no space left on the device"},
    {Platform::SYS_DIR_NOT_EMPTY, "the directory is not empty"},
    {Platform::SYS_ALREADY_EXISTS, "it exists already"},
    {Platform::SYS_FILENAME_TOO_LONG, "the name is too long"},
    {Platform::SYS_FILE_TOO_LARGE, "the file is too large"},
    {Platform::SYS_TIMEOUT, "no answer in time"},
    {Platform::SYS_CONNECTION_REFUSED, "nobody listens"},
    {Platform::SYS_CANT_RESOLVE_FILENAME, "too many symbolic links"},
};

} // namespace

std::string ErrorText(Platform::SError error)
{
    const auto* const pText = std::ranges::find(TEXTS, error.dwSysError, &SText::dwSysError);
    return pText != std::end(TEXTS) ? pText->pszText : "system error " + std::to_string(error.dwSysError);
}
