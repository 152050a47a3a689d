#pragma once

#include "Bex/CHashMap.h"
#include "Bex/CList.h"
#include "Bex/CSimpleString.h"
#include "Bex/CTime.h"

namespace Bex {

/// A key/value file in memory: "key: value" lines with "#" comments, written back with comments and order intact.
///
/// Process-wide tables are shared between threads: each map operation is atomic, a Load as a whole is not. Keys are
/// compared exactly; the first of two equal keys in a file wins.
class CStorableStringHash : public CHashMap<CSimpleString, CSimpleString>
{
public:
    CStorableStringHash() = default;
    ~CStorableStringHash() override = default;
    void SetModified() override { m_bModified = true; }

    /// Replaces the whole content. False when the file cannot be opened (the content stays) or a hook refused;
    /// CFileException for a read error after the open.
    bool Load(const CSimpleString& strFileName);
    /// Writes a temporary file and moves it onto the target (null: the file of the last Load). False when the
    /// temporary file cannot be made or the move fails for good; CFileException for a write error in between.
    bool Save(const CSimpleString* pstrFileName = nullptr);
    bool HasChanged() const; ///< the file was written after it was read or saved; false when that cannot be told

    const CSimpleString& FileName() const { return m_strFileName; }
    bool IsLoaded() const { return m_bLoaded; }
    bool IsModified() const { return m_bModified; }
    void SetKeepComments(bool bKeep) { m_bKeepComments = bKeep; }
    void SetSeparator(char cSeparator) { m_cSeparator = cSeparator; }
    void SetQuotes(char cOpening, char cClosing);

protected:
    virtual bool OnLoadEntry(CSimpleString& strKey, CSimpleString& strValue); ///< true accepts the pair; may change it
    virtual bool OnBeforeLoad() { return true; }
    virtual bool OnAfterLoad() { return true; }
    virtual bool OnLoadBegin() { return true; }
    virtual bool OnLoadEnd() { return true; }

private:
    struct SPair;
    class CLoader;
    class CSaver;

    CSimpleString m_strFileName;
    CList<CSimpleString> m_lines; ///< of the file, trimmed, as needed to write it back
    int64_t m_iFileTime = 0;      ///< nanoseconds since 1970
    std::atomic<bool> m_bLoaded = false;
    std::atomic<bool> m_bModified = false;
    bool m_bKeepComments = true;
    char m_cSeparator = ':';
    char m_cOpeningQuote = '"';
    char m_cClosingQuote = '"';
};

} // namespace Bex
