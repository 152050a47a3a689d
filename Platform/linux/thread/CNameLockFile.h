#pragma once

#include "Platform/linux/base/CDescriptor.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Platform {

/// One user's file whose bytes stand for names: while a byte is locked, its name is taken. It stays empty.
///
/// It lies in the first place that works. Where that has changed, files lie in several places, of which two processes
/// may know different ones: a byte is then taken in every file there is, so that they still meet in one.
///
/// Shared by the threads of the process, none of which may take a byte that another one holds. The kernel lets go of
/// the bytes when the last copy of the descriptors is closed, at the latest when the process ends.
class CNameLockFile
{
public:
    enum class EResult { Locked, Busy, Replaced, Failed };

    /// Opens the files that are there under the base directories; while there is none, makes it under the first base
    /// that can be used: a base that is missing, refused, full or has something of somebody else where the file belongs
    /// is passed over. Null, and LastError, when none can be used or something is short.
    static std::shared_ptr<CNameLockFile> Open(const std::vector<std::string>& bases);

    static std::string PlaceBelow(const std::string& strBase); ///< the directory of the file

    /// Never waits. Replaced: the file was removed from under us, open it anew. Failed: LastError tells why.
    EResult TryLock(int64_t iByte);
    void Unlock(int64_t iByte);

private:
    struct SPlace
    {
        CDescriptor directory;
        CDescriptor file;
    };

    static bool OpenPlace(const std::string& strBase, bool bMake, std::vector<SPlace>& places);
    static bool Make(const std::vector<std::string>& bases);
    bool FindPlaces(const std::vector<std::string>& bases);
    EResult TryLockIn(int iFile, int64_t iByte);

    std::vector<SPlace> m_places;
};

} // namespace Platform
