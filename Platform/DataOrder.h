#pragma once

namespace Platform {

/// Whether the file system of this path is known to bring content whose write-out was begun to the disk before a name
/// that the file gets afterwards: ext4 with a journal that orders data, and what lives in memory only. False also when
/// nobody can tell. Any thread; reads the options of one file system once, so that another mount of it counts at the
/// next start.
bool OrdersDataBeforeNames(const char* pszPath);

/// How written content gets to the disk at this path; the first is what OrdersDataBeforeNames tells.
enum class EDataOrder {
    BeforeNames,
    WithVolume,    ///< a flush of the file system brings it there
    WithFileAlone, ///< one of the file, before it gets its name, as other hosts see it then; of what a program serves
                   ///< (FUSE) the kernel passes no other on
};
EDataOrder DataOrderAt(const char* pszPath);

} // namespace Platform
