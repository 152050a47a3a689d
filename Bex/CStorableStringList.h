#pragma once

#include "Bex/CList.h"
#include "Bex/CSimpleString.h"

#include <atomic>
#include <cstdint>
#include <string_view>

namespace Bex {

/// A list file in memory: one entry per line, "#" begins a comment.
///
/// Shared between threads under the list's lock, which a Load holds while it replaces the content. Entries keep their
/// case, order and duplicates.
class CStorableStringList : public CList<CSimpleString>
{
public:
    explicit CStorableStringList(bool bTrim) : m_bTrim(bTrim) {}
    ~CStorableStringList() override = default;
    void SetModified() override { m_bModified = true; }

    /// Replaces the whole content. False when the file cannot be opened (the entries stay), is larger than
    /// MOST_TABLE_BYTES (logged) or a hook refused; CFileException for a read error after the open.
    bool Load(const CSimpleString& strFileName);
    bool HasFileChanged() const; ///< the file was written after it was read; false when that cannot be told
    const CSimpleString& FileName() const { return m_strFileName; }
    bool IsLoaded() const { return m_bLoaded; }

protected:
    virtual bool OnLoadLine(CSimpleString& strEntry);
    virtual bool OnBeforeLoad() { return true; }
    virtual bool OnAfterLoad() { return true; }
    virtual bool OnLoadBegin() { return true; }
    virtual bool OnLoadEnd() { return true; }

private:
    void LoadLine(std::string_view line);

    CSimpleString m_strFileName;
    CList<CSimpleString> m_lines;         ///< every line as read
    std::atomic<int64_t> m_iFileTime = 0; ///< nanoseconds since 1970
    std::atomic<bool> m_bLoaded = false;
    std::atomic<bool> m_bModified = false;
    bool m_bTrim;
};

} // namespace Bex
