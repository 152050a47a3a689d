#include "Platform/DataOrder.h"

#include "Platform/FileSystem.h"
#include "Platform/linux/base/GuardedCall.h"

#include <array>
#include <climits>
#include <fstream>
#include <linux/magic.h>
#include <map>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace Platform {

namespace {

/// What the kernel tells under the name of the block device; other mount tables leave out what is the default. Without
/// a journal no order of the data is among it.
bool IsOrderedExt4(dev_t device)
{
    const std::string strLink = "/sys/dev/block/" + std::to_string(major(device)) + ":" + std::to_string(minor(device));
    std::array<char, PATH_MAX> buffer;
    const ssize_t iLength = readlink(strLink.c_str(), buffer.data(), buffer.size());
    if (iLength <= 0)
        return false;
    const std::string strTarget(buffer.data(), static_cast<size_t>(iLength));
    std::ifstream options("/proc/fs/ext4/" + strTarget.substr(strTarget.rfind('/') + 1) + "/options");
    bool bOrdered = false;
    for (std::string strOption; std::getline(options, strOption);)
        bOrdered |= strOption == "data=ordered" || strOption == "data=journal";
    return bOrdered;
}

} // namespace

bool OrdersDataBeforeNames(const char* pszPath) { return DataOrderAt(pszPath) == EDataOrder::BeforeNames; }

EDataOrder DataOrderAt(const char* pszPath)
{
    using enum EDataOrder;
    struct statfs fileSystem
    {};
    struct stat status
    {};
    if (GuardedCall({EFault::FileSystemType, pszPath}, [&] { return statfs(pszPath, &fileSystem); }) != 0 ||
        stat(pszPath, &status) != 0)
        return WithVolume;
    if (fileSystem.f_type == TMPFS_MAGIC || fileSystem.f_type == RAMFS_MAGIC)
        return BeforeNames;
    if (fileSystem.f_type != EXT4_SUPER_MAGIC)
        return IsNetworkPath(pszPath) ? WithFileAlone : WithVolume;
    static std::mutex s_mutex;
    static std::map<dev_t, bool> s_known;
    const std::lock_guard lock(s_mutex);
    auto known = s_known.find(status.st_dev);
    if (known == s_known.end())
        known = s_known.emplace(status.st_dev, IsOrderedExt4(status.st_dev)).first;
    return known->second ? BeforeNames : WithVolume;
}

} // namespace Platform
