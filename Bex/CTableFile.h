#pragma once

#include "Bex/CTableReader.h"
#include "Platform/FileIdentity.h"

#include <atomic>

namespace Bex {

constexpr uint64_t MOST_TABLE_BYTES = 64u << 20; ///< of what the administrator keeps
constexpr uint64_t MOST_CONFIG_BYTES = 1u << 20; ///< of settings, an account's among them

/// A container that is loaded from a file of lines. What a line means, the derived class knows.
///
/// Process-wide tables are shared between threads under the container's lock. A load reads into a container of its own
/// and swaps the two when all of it is there: nobody sees a part, or waits for the disk. Loads belong to one thread.
template <class TContainer>
class CTableFile : public TContainer
{
public:
    void SetModified() override { m_bModified = true; }

    /// Replaces the whole content. False when the file cannot be opened, is no regular file (Platform::LastError tells
    /// why), is larger than the bound (logged) or a hook refused; CFileException for a read error after the open. The
    /// content then stays.
    bool Load(const CSimpleString& strFileName)
    {
        m_strFileName = strFileName;
        CList<CSimpleString> lines;
        CTableReader reader(m_nMostBytes, lines);
        if (!OnBeforeLoad() || !reader.Open(m_strFileName))
            return false;
        TContainer content;
        const CLoading loading(m_pLoading, content);
        if (!OnLoadBegin())
            return false;
        m_nLine = 0;
        for (CSimpleString strLine; reader.ReadLine(strLine);) {
            ++m_nLine;
            LoadLine(strLine, reader, content);
        }
        SetFile(reader.Identity());
        if (!reader.IsWithinBound() || !OnLoadEnd())
            return false;
        Replace(content, lines);
        OnAfterLoad();
        m_bLoaded = true;
        return true;
    }

    const CSimpleString& FileName() const { return m_strFileName; } ///< of the last load
    bool IsLoaded() const { return m_bLoaded; }
    bool IsModified() const { return m_bModified; }
    /// The file is another one than was read or saved, has another size or a later time; false when that cannot be
    /// told.
    bool HasFileChanged() const
    {
        Platform::SFileIdentity present;
        if (!Platform::IdentityOf(m_strFileName.Text(), present, Platform::ELinks::Follow))
            return false;
        const CScopedLock lock(this->LockObject());
        return !present.IsSameFile(m_file) || present.iModified > m_file.iModified;
    }

protected:
    explicit CTableFile(uint64_t nMostBytes) : m_nMostBytes(nMostBytes) {}

    virtual bool OnBeforeLoad() { return true; }
    virtual bool OnAfterLoad() { return true; }
    virtual bool OnLoadBegin() { return true; }
    virtual bool OnLoadEnd() { return true; }
    uint32_t LineNumber() const { return m_nLine; } ///< of the line being loaded, from 1
    const TContainer& Loading() const               ///< what has been loaded so far, for the hooks
    {
        return m_pLoading != nullptr ? *m_pLoading : *this;
    }

    const CList<CSimpleString>& Lines() const { return m_lines; } ///< that the loads kept
    void SetSaved(const Platform::SFileIdentity& file)            ///< which has the content of this object
    {
        m_bModified = false;
        SetFile(file);
    }
    void Saw(const CTableFile& other) { SetFile(other.m_file); } ///< the same file, as that one found it
    /// Gets the content of another table of the same file, which nobody else uses.
    void TakeOver(CTableFile& fresh)
    {
        SetFile(fresh.m_file);
        Replace(fresh, fresh.m_lines);
    }

private:
    /// Lets the hooks see the content that is being loaded, for as long as that lasts.
    class CLoading
    {
    public:
        CLoading(const TContainer*& pLoading, const TContainer& content) : m_pLoading(pLoading)
        {
            m_pLoading = &content;
        }
        ~CLoading() { m_pLoading = nullptr; }
        CLoading(const CLoading&) = delete;
        CLoading& operator=(const CLoading&) = delete;

    private:
        const TContainer*& m_pLoading;
    };

    virtual void LoadLine(const CSimpleString& strLine, CTableReader& reader, TContainer& content) = 0;
    void Replace(TContainer& content, CList<CSimpleString>& lines)
    {
        const CScopedLock lock(this->LockObject());
        this->Swap(content);
        m_lines.Swap(lines);
        m_bModified = false;
    }
    void SetFile(const Platform::SFileIdentity& file)
    {
        const CScopedLock lock(this->LockObject());
        m_file = file;
    }

    CSimpleString m_strFileName;
    CList<CSimpleString> m_lines;
    const uint64_t m_nMostBytes;
    const TContainer* m_pLoading = nullptr; ///< null: no load goes on
    uint32_t m_nLine = 0;
    Platform::SFileIdentity m_file; ///< that was read or saved last; guarded by the container's lock
    std::atomic<bool> m_bLoaded = false;
    std::atomic<bool> m_bModified = false;
};

} // namespace Bex
