#include "Platform/CDirectoryListing.h"
#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/base/Result.h"

#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <sys/stat.h>

namespace Platform {

namespace {

struct SCloser
{
    void operator()(DIR* pDirectory) const { closedir(pDirectory); }
};
using Directory = std::unique_ptr<DIR, SCloser>;

/// Some file systems leave the kind to be asked for. DT_UNKNOWN: the entry has gone meanwhile.
unsigned char KindOfEntry(DIR* pDirectory, const dirent& entry)
{
    if (entry.d_type != DT_UNKNOWN)
        return entry.d_type;
    struct stat status
    {};
    if (fstatat(dirfd(pDirectory), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0)
        return DT_UNKNOWN;
    return static_cast<unsigned char>(IFTODT(status.st_mode));
}

bool IsDotEntry(const char* pszName) { return std::strcmp(pszName, ".") == 0 || std::strcmp(pszName, "..") == 0; }

} // namespace

bool CDirectoryListing::Read(const char* pszDirectory)
{
    m_names.clear();
    m_entries.clear();
    const Directory pDirectory(GuardedCall({EFault::ListDirectory}, [&] { return opendir(pszDirectory); }));
    if (pDirectory == nullptr)
        return FailWithErrno();
    for (;;) {
        errno = 0;
        const dirent* pEntry = GuardedCall({EFault::ReadDirectory}, [&] { return readdir(pDirectory.get()); });
        if (pEntry == nullptr)
            break;
        if (IsDotEntry(pEntry->d_name))
            continue;
        const unsigned char byKind = KindOfEntry(pDirectory.get(), *pEntry);
        if (byKind == DT_UNKNOWN)
            continue;
        if (m_names.size() > std::numeric_limits<uint32_t>::max()) {
            errno = EOVERFLOW;
            break;
        }
        m_entries.push_back({static_cast<uint32_t>(m_names.size()), byKind});
        m_names.insert(m_names.end(), pEntry->d_name, pEntry->d_name + std::strlen(pEntry->d_name) + 1);
    }
    if (errno != 0) {
        FailWithErrno();
        m_names.clear();
        m_entries.clear();
        return false;
    }
    const char* pNames = m_names.data();
    std::sort(m_entries.begin(), m_entries.end(), [pNames](const SEntry& left, const SEntry& right) {
        return std::strcmp(pNames + left.dwName, pNames + right.dwName) < 0;
    });
    return true;
}

SDirectoryEntry CDirectoryListing::At(size_t nIndex) const
{
    const SEntry& entry = m_entries[nIndex];
    return {m_names.data() + entry.dwName, entry.byKind == DT_DIR, entry.byKind == DT_REG || entry.byKind == DT_LNK};
}

} // namespace Platform
