#pragma once

#include "Platform/linux/base/CDescriptor.h"

#include <cstdint>
#include <memory>
#include <string>

namespace Platform {

/// One user's file whose bytes stand for names: while a byte is locked, its name is taken. It stays empty.
///
/// Shared by the threads of the process, none of which may take a byte that another one holds. The kernel lets go of
/// the bytes when the last copy of the descriptor is closed, at the latest when the process ends.
class CNameLockFile
{
public:
    enum class EResult { Locked, Busy, Replaced, Failed };

    /// Opens the file under the first base directory that can be used. Null, and LastError, when there is none or
    /// when somebody else has put something where the file belongs.
    static std::shared_ptr<CNameLockFile> Open(std::initializer_list<const char*> bases);

    /// Never waits. Replaced: the file was removed from under us, open it anew. Failed: LastError tells why.
    EResult TryLock(int64_t iByte);
    void Unlock(int64_t iByte);

private:
    CNameLockFile(CDescriptor directory, CDescriptor file);

    CDescriptor m_directory;
    CDescriptor m_file;
};

} // namespace Platform
