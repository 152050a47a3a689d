#pragma once

#include "Bex/CHashMap.h"
#include "Bex/CSimpleString.h"
#include "Bex/CTableFile.h"

#include <optional>
#include <string>
#include <string_view>

namespace Bex {

/// A key/value file in memory: "key: value" lines with "#" comments, written back with comments and order intact.
///
/// Each map operation is atomic. Keys are compared exactly; the first of two equal keys in a file wins.
class CStorableStringHash : public CTableFile<CHashMap<CSimpleString, CSimpleString>>
{
public:
    explicit CStorableStringHash(uint64_t nMostBytes = MOST_TABLE_BYTES) : CTableFile(nMostBytes) {}
    ~CStorableStringHash() override = default;

    /// Writes a temporary file and moves it onto the target (null: the file of the last Load). False when the
    /// temporary file cannot be made or the move fails for good; CFileException for a write error in between. A change
    /// of few bytes is made in the target itself.
    bool Save(const CSimpleString* pstrFileName = nullptr);
    bool HasChanged() const { return HasFileChanged(); } ///< after it was read or saved

    void SetKeepComments(bool bKeep) { m_bKeepComments = bKeep; }
    void SetSeparator(char cSeparator) { m_cSeparator = cSeparator; }
    void SetQuotes(char cOpening, char cClosing);

protected:
    virtual bool OnLoadEntry(CSimpleString& strKey, CSimpleString& strValue); ///< true accepts the pair; may change it
    /// Of a line that has no effect: the key that an earlier line had, or the text that holds no pair.
    enum class EPassedOver { SecondKey, NoPair };
    virtual void OnPassedOver(EPassedOver, std::string_view) {}

private:
    /// What a line holds; the parts are views of it.
    struct SLine
    {
        std::optional<std::string_view> key; ///< missing: the line holds no pair
        std::string_view value;
        std::string_view comment; ///< with its "#"
    };

    SLine Split(std::string_view line) const;
    void LoadLine(const CSimpleString& strLine, CTableReader& reader, CHashMap& content) override;
    std::string Content() const;
    void AddPair(std::string& strContent, const CSimpleString& strKey, std::string_view comment) const;

    bool m_bKeepComments = true;
    char m_cSeparator = ':';
    char m_cOpeningQuote = '"';
    char m_cClosingQuote = '"';
};

} // namespace Bex
