#pragma once

#include "Bex/CHashMap.h"
#include "Bex/CList.h"
#include "Bex/CSimpleString.h"
#include "Bex/TableFile.h"

#include <atomic>
#include <optional>
#include <string_view>

namespace Bex {

/// A key/value file in memory: "key: value" lines with "#" comments, written back with comments and order intact.
///
/// Process-wide tables are shared between threads: each map operation is atomic, and so is a Load for them, as it holds
/// the map's lock while it replaces the content. Keys are compared exactly; the first of two equal keys in a file wins.
class CStorableStringHash : public CHashMap<CSimpleString, CSimpleString>
{
public:
    explicit CStorableStringHash(uint64_t nMostBytes = MOST_TABLE_BYTES) : m_nMostBytes(nMostBytes) {}
    ~CStorableStringHash() override = default;
    void SetModified() override { m_bModified = true; }

    /// Replaces the whole content. False when the file cannot be opened (the content stays), is larger than the bound
    /// (logged) or a hook refused; CFileException for a read error after the open.
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
    uint32_t LineNumber() const { return m_nLine; } ///< of the line being loaded, from 1

private:
    /// What a line holds; the parts are views of it.
    struct SLine
    {
        std::optional<std::string_view> key; ///< missing: the line holds no pair
        std::string_view value;
        std::string_view comment; ///< with its "#"
    };

    SLine Split(std::string_view line) const;
    void LoadLine(std::string_view line, CTableReader& reader);
    void WriteContent(CTextFile& file) const;
    void WritePair(CTextFile& file, const CSimpleString& strKey, std::string_view comment) const;

    CSimpleString m_strFileName;
    CList<CSimpleString> m_lines; ///< of the file, trimmed, as needed to write it back
    const uint64_t m_nMostBytes;
    uint32_t m_nLine = 0;                 ///< guarded by the map's lock
    std::atomic<int64_t> m_iFileTime = 0; ///< nanoseconds since 1970
    std::atomic<bool> m_bLoaded = false;
    std::atomic<bool> m_bModified = false;
    bool m_bKeepComments = true;
    char m_cSeparator = ':';
    char m_cOpeningQuote = '"';
    char m_cClosingQuote = '"';
};

} // namespace Bex
