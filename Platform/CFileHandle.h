#pragma once

#include "Platform/FileIdentity.h"

#include <cstddef>
#include <cstdint>

namespace Platform {

enum class EAccess { Read, Write, ReadWrite };
enum class EShare { Exclusive, DenyWrite, DenyRead, DenyNone };
enum class ESeekFrom { Begin, Current, End };

struct SOpenMode
{
    EAccess access = EAccess::Read;
    EShare share = EShare::DenyNone;
    bool bCreate = false;       ///< create when missing
    bool bCreateNew = false;    ///< create, refuse when present (LIB_EXISTS)
    bool bTruncate = false;     ///< once the file is locked; needs write access
    bool bOnlyRegular = false;  ///< refuse symbolic links (LIB_LOOP), pipes and devices (LIB_NOT_SUPPORTED)
    bool bNoDevices = false;    ///< refuse pipes and devices (LIB_NOT_SUPPORTED), also behind a symbolic link
    bool bOnlyComplete = false; ///< refuse as busy what changed within a second if its writers cannot be told
    unsigned dwPermission = 0600;
};

/// An open file. Owned by one object, used by one thread.
///
/// Share modes are kept against cooperating openers by advisory locks, whatever either of the two asks for, and an open
/// for reading that denies writers is refused (LIB_ACCESS) while any process still has the file open for writing, where
/// the file system can tell. A symbolic link is never followed when the open may create, truncate
/// or write. No open waits, neither for another end of a pipe nor for a lock. A directory is refused
/// (LIB_IS_DIRECTORY). Operations answer -1 or false and set LastError on failure.
class CFileHandle
{
public:
    CFileHandle() = default;
    ~CFileHandle();
    CFileHandle(CFileHandle&& other) noexcept;
    CFileHandle& operator=(CFileHandle&& other) noexcept;

    bool Open(const char* pszPath, const SOpenMode& mode);
    bool IsOpen() const { return m_iDescriptor >= 0; }
    bool Remove(); ///< takes away the name that it has by now, wherever its directory was moved
    bool Close();
    bool ShareLock();          ///< of one that reads and excludes everybody, with others that only read
    bool LetOthersTake();      ///< of one that reads and denies writers: only RemoveUnlessInUse spares the file still
    bool IsUnfinished() const; ///< by somebody's LetOthersTake (LIB_ACCESS), or nobody can tell
    /// The very file that the reader has open, which says how it is shared; the path is for the faults of tests.
    bool OpenWriter(const CFileHandle& reader, const char* pszPath);
    bool OpenReader(const CFileHandle& writer, const char* pszPath); ///< the same the other way round
    /// A new file without a name, for writing. LIB_NOT_SUPPORTED where the file system has none such.
    bool OpenUnnamed(const char* pszDirectory, unsigned dwPermission);
    int64_t Read(void* pBuffer, size_t nCount);        ///< 0 at the end of the file; short only there
    int64_t Write(const void* pBuffer, size_t nCount); ///< writes everything or fails
    int64_t Seek(int64_t iOffset, ESeekFrom from);     ///< the new position
    int64_t Size();                                    ///< in bytes
    bool Identity(SFileIdentity& identity) const;      ///< of the file that is open
    int NativeHandle() const { return m_iDescriptor; }

private:
    bool Reopen(const CFileHandle& other, int iFlags, const char* pszPath);

    int m_iDescriptor = -1;
};

} // namespace Platform
