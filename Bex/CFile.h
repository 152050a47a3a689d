#pragma once

#include "Bex/CSimpleString.h"
#include "Bex/CTime.h"
#include "Platform/CFileHandle.h"
#include "Platform/FileIdentity.h"

#include <cstdint>

namespace Bex {

/// When a file was made, written and read, in whole seconds.
struct SFileTime
{
    CTime created;
    CTime modified;
    CTime accessed;
};

/// An open file, and operations on files by name. Every failure raises CFileException.
///
/// Owned and used by one thread. What excludes other threads and processes is the sharing of the open: a file that
/// is in use the wrong way fails with library error 13 or 36.
class CFile
{
public:
    static constexpr uint32_t modeRead = 0;
    static constexpr uint32_t modeWrite = 1;
    static constexpr uint32_t modeReadWrite = 2;
    static constexpr uint32_t modeCreate = 256; ///< create when missing; needs one of the writing modes
    static constexpr uint32_t modeTruncate = 512;
    static constexpr uint32_t modeNew = 0x100000; ///< create, refuse what has the name (LIB_EXISTS)
    static constexpr uint32_t shareExclusive = 16;
    static constexpr uint32_t shareDenyWrite = 32;
    static constexpr uint32_t shareDenyRead = 48;
    static constexpr uint32_t shareDenyNone = 64; ///< the default
    static constexpr uint32_t typeText = 16384;
    static constexpr uint32_t typeBinary = 32768;
    static constexpr uint32_t onlyRegular = 0x10000; ///< refuse symbolic links, pipes and devices when reading
    static constexpr uint32_t noDevices = 0x40000;   ///< refuse pipes and devices, also behind a symbolic link
    /// When reading: as busy (LIB_ACCESS) refuse a file that changed within the last second, where nobody can tell
    /// whether it is still being written. Needs a sharing that denies writers.
    static constexpr uint32_t onlyComplete = 0x20000;
    static constexpr uint32_t PERMISSION_READ_WRITE = 384;

    CFile() = default;
    virtual ~CFile(); ///< closes, ignoring errors
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;

    virtual void Open(const CSimpleString& strName, uint32_t dwFlags, uint32_t dwPermission = PERMISSION_READ_WRITE);
    virtual void OnEvent(void*) {} ///< a hook; nothing
    virtual void Close();
    virtual uint32_t Read(void* pBuffer, uint32_t nCount); ///< the count read; 0 at the end of the file
    virtual uint32_t Write(const void* pBuffer, uint32_t nCount);
    virtual bool IsEOF();
    virtual int64_t Seek(int64_t iOffset, Platform::ESeekFrom origin); ///< the new position
    virtual int64_t Tell();

    bool IsOpen() const { return m_bOpen; }
    Platform::SFileIdentity Identity() const; ///< of the open file
    bool IsText() const { return (m_dwFlags & typeText) != 0; }
    const CSimpleString& Name() const { return m_strName; }

    static void Remove(const CSimpleString& strName);
    /// False when somebody has it open for writing or locked. For what a crash has left; links and pipes are refused.
    static bool RemoveUnlessInUse(const CSimpleString& strName);
    static void Move(const CSimpleString& strFrom, const CSimpleString& strTo); ///< replaces; across file systems, too
    static SFileTime GetTimes(const CSimpleString& strName);
    static bool Exists(const CSimpleString& strName);

protected:
    Platform::CFileHandle m_handle;
    CSimpleString m_strName;
    bool m_bOpen = false;
    uint32_t m_dwFlags = 0; ///< of the open, without the sharing bits
};

} // namespace Bex
