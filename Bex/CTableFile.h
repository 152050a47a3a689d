#pragma once

#include "Bex/CTableReader.h"

#include <atomic>

namespace Bex {

constexpr uint64_t MOST_TABLE_BYTES = 64u << 20; ///< of what the administrator keeps
constexpr uint64_t MOST_CONFIG_BYTES = 1u << 20; ///< of settings, an account's among them

/// A container that is loaded from a file of lines. What a line means, the derived class knows.
///
/// Process-wide tables are shared between threads under the container's lock, which a Load holds while it replaces the
/// content.
template <class TContainer>
class CTableFile : public TContainer
{
public:
    void SetModified() override { m_bModified = true; }

    /// Replaces the whole content. False when the file cannot be opened (the content stays; Platform::LastError tells
    /// why), is larger than the bound (logged; what came before it is the content) or a hook refused; CFileException
    /// for a read error after the open.
    bool Load(const CSimpleString& strFileName)
    {
        m_strFileName = strFileName;
        CTableReader reader(m_nMostBytes, m_lines);
        if (!OnBeforeLoad() || !reader.Open(m_strFileName))
            return false;
        const CScopedLock lock(this->LockObject());
        m_iFileTime = reader.FileTime();
        this->RemoveAll();
        m_lines.RemoveAll();
        if (!OnLoadBegin())
            return false;
        m_nLine = 0;
        for (CSimpleString strLine; reader.ReadLine(strLine);) {
            ++m_nLine;
            LoadLine(strLine, reader);
        }
        if (!reader.IsWithinBound() || !OnLoadEnd())
            return false;
        OnAfterLoad();
        m_bLoaded = true;
        m_bModified = false;
        return true;
    }

    const CSimpleString& FileName() const { return m_strFileName; } ///< of the last load
    bool IsLoaded() const { return m_bLoaded; }
    bool IsModified() const { return m_bModified; }

protected:
    explicit CTableFile(uint64_t nMostBytes) : m_nMostBytes(nMostBytes) {}

    virtual bool OnBeforeLoad() { return true; }
    virtual bool OnAfterLoad() { return true; }
    virtual bool OnLoadBegin() { return true; }
    virtual bool OnLoadEnd() { return true; }
    uint32_t LineNumber() const { return m_nLine; } ///< of the line being loaded, from 1

    const CList<CSimpleString>& Lines() const { return m_lines; } ///< that the loads kept
    bool WasWrittenLater() const                                  ///< false when that cannot be told
    {
        int64_t iTime = 0;
        return GetLastWriteTime(m_strFileName, iTime) && iTime > m_iFileTime;
    }
    void SetSaved(int64_t iFileTime) ///< the file has the content of this object; nanoseconds since 1970
    {
        m_bModified = false;
        m_iFileTime = iFileTime;
    }

private:
    virtual void LoadLine(const CSimpleString& strLine, CTableReader& reader) = 0;

    CSimpleString m_strFileName;
    CList<CSimpleString> m_lines;
    const uint64_t m_nMostBytes;
    uint32_t m_nLine = 0;                 ///< guarded by the container's lock
    std::atomic<int64_t> m_iFileTime = 0; ///< nanoseconds since 1970
    std::atomic<bool> m_bLoaded = false;
    std::atomic<bool> m_bModified = false;
};

} // namespace Bex
