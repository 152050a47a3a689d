#include "Bex/CStorableStringHash.h"

#include "Bex/CFileException.h"
#include "Bex/CReplacingFile.h"
#include "Bex/CThread.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Platform/Clock.h"
#include "Platform/OverwriteInPlace.h"

#include <optional>
#include <unordered_set>
#include <vector>

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CStorableStringHash";
constexpr char COMMENT = '#';

/// False when it fails for good, which is logged.
bool CommitPatiently(CReplacingFile& file, const CSimpleString& strTarget)
{
    constexpr unsigned ATTEMPTS = 3;
    constexpr unsigned PAUSE_MILLIS = 500;
    for (unsigned nAttempt = 1;; ++nAttempt) {
        try {
            file.Commit();
            return true;
        } catch (const CFileException& exception) {
            const bool bMayPass = exception.SysError() == Platform::SYS_ACCESS_DENIED ||
                                  exception.SysError() == Platform::SYS_SHARING_VIOLATION;
            const bool bRetry = bMayPass && nAttempt < ATTEMPTS;
            LogError(MainLog(),
                     "CStorableStringHash::Save: failed to rename \"%s\" to \"%s\", liberror=%d, syserror=%d, %s",
                     file.Name().Text(), strTarget.Text(), exception.LibError(), exception.SysError(),
                     bRetry ? "retrying" : "giving up");
            if (!bRetry)
                return false;
        }
        Platform::SleepMillis(nAttempt * PAUSE_MILLIS);
    }
}

} // namespace

void CStorableStringHash::SetQuotes(char cOpening, char cClosing)
{
    m_cOpeningQuote = cOpening;
    m_cClosingQuote = cClosing;
}

bool CStorableStringHash::OnLoadEntry(CSimpleString&, CSimpleString&) { return true; }

CStorableStringHash::SLine CStorableStringHash::Split(std::string_view line) const
{
    constexpr auto NONE = std::string_view::npos;
    const size_t nComment = line.find(COMMENT);
    SLine result;
    if (nComment != NONE)
        result.comment = line.substr(nComment);
    std::string_view key = line.substr(0, nComment);
    std::string_view rest = key;
    const bool bQuoted = key.starts_with(m_cOpeningQuote);
    if (bQuoted) {
        const size_t nClosing = key.find(m_cClosingQuote, 1);
        if (nClosing == NONE)
            return result;
        rest = key.substr(nClosing + 1);
        key = key.substr(1, nClosing - 1);
    }
    const size_t nSeparator = rest.find(m_cSeparator);
    if (nSeparator == NONE)
        return result;
    result.key = TrimmedView(bQuoted ? key : rest.substr(0, nSeparator));
    result.value = TrimmedView(rest.substr(nSeparator + 1));
    return result;
}

void CStorableStringHash::LoadLine(const CSimpleString& strLine, CTableReader& reader, CHashMap& content)
{
    const std::string_view line = TrimmedView(strLine);
    const SLine parts = Split(line);
    if (parts.key) {
        CSimpleString strKey(*parts.key);
        CSimpleString strValue(parts.value);
        if (content.Contains(strKey)) {
            OnPassedOver(EPassedOver::SecondKey, strKey);
            return;
        }
        if (!OnLoadEntry(strKey, strValue))
            return;
        content.Set(strKey, std::move(strValue));
    } else if (line.size() > parts.comment.size()) {
        OnPassedOver(EPassedOver::NoPair, line);
    }
    reader.Keep(CSimpleString(line));
}

bool CStorableStringHash::Save(const CSimpleString* pstrFileName)
{
    const CSimpleString strTarget = pstrFileName != nullptr ? *pstrFileName : FileName();
    const std::string strContent = Content();
    Platform::SFileIdentity saved;
    CThread::EndIfAbandoned();
    if (Platform::OverwriteInPlace(strTarget.Text(), strContent, saved)) {
        SetSaved(saved);
        return true;
    }
    std::optional<CReplacingFile> file;
    try {
        file.emplace(strTarget, CSimpleString::Formatted("%s.tmp", strTarget.Text()).Text());
    } catch (const CFileException&) {
        return false;
    }
    file->WriteString(strContent);
    file->Seek(0, Platform::ESeekFrom::Current); // all of it is written
    saved = file->Identity();
    if (!file->StartWriteOut())
        file->MakeDurable(); // a power cut could leave an empty file in place of the old one
    if (!CommitPatiently(*file, strTarget)) {
        file->Leave();
        return false;
    }
    SetSaved(saved);
    return true;
}

std::string CStorableStringHash::Content() const
{
    std::vector<CSimpleString> keys;
    {
        const CScopedLock lock(LockObject());
        for (CIterator node(*this); node; ++node)
            keys.push_back(node->key);
    }
    std::unordered_set<std::string_view> pending(keys.begin(), keys.end());
    const CList<CSimpleString> lines(Lines());
    std::string strContent;
    for (const CSimpleString& strLine : lines) {
        const SLine parts = Split(strLine);
        const std::string_view comment = m_bKeepComments ? parts.comment : std::string_view();
        if (parts.key && pending.erase(*parts.key) > 0)
            AddPair(strContent, CSimpleString(*parts.key), comment);
        else if (!parts.key && m_bKeepComments)
            (strContent += comment) += '\n';
    }
    for (const CSimpleString& strKey : keys) {
        if (pending.contains(strKey))
            AddPair(strContent, strKey, {});
    }
    return strContent;
}

void CStorableStringHash::AddPair(std::string& strContent, const CSimpleString& strKey, std::string_view comment) const
{
    CSimpleString strValue;
    if (!Lookup(strKey, strValue)) {
        LogWarning(MainLog(),
                   "CStorableStringHash::Save: no value for key \"%s\" found at %s:%d, this is normally impossible",
                   strKey.Text(), SOURCE_FILE, __LINE__);
        return;
    }
    const bool bQuoted = m_cSeparator == '\0' || strKey.Contains(m_cSeparator);
    const std::string_view opening(&m_cOpeningQuote, bQuoted ? 1 : 0);
    const std::string_view closing(&m_cClosingQuote, bQuoted ? 1 : 0);
    const std::string_view separator(&m_cSeparator, 1);
    for (const std::string_view part :
         {opening, strKey.View(), closing, separator, std::string_view(" "), strValue.View(),
          std::string_view(comment.empty() ? "" : "\t"), comment, std::string_view("\n")})
        strContent += part;
}

} // namespace Bex
