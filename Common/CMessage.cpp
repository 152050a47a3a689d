#include "Common/CMessage.h"

#include "Bex/CFileException.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/CHeaderReader.h"
#include "Common/HeaderFields.h"
#include "Common/NormalizeAddress.h"
#include "Platform/Host.h"

#include <algorithm>
#include <new>
#include <optional>
#include <string>
#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "Common/Message";
constexpr uint64_t ALWAYS_POSSIBLE = 64u << 20; ///< bytes of a body for which nobody asks how much memory there is
constexpr std::string_view END_OF_DATA = "\r\n.\r\n";
constexpr std::string_view LINE_END = "\r\n";
constexpr size_t PIECE = 65536;

/// The text between the first of one character and the last of another; empty when they stand the other way round.
std::string_view Between(std::string_view text, char cFirst, char cLast)
{
    size_t nStart = text.find(cFirst) + 1;
    size_t nEnd = text.rfind(cLast);
    return nEnd >= nStart ? text.substr(nStart, nEnd - nStart) : std::string_view();
}

bool Contains(std::string_view text, char c) { return text.find(c) != std::string_view::npos; }

/// Everything behind the header block; false when the file is shorter than it was.
bool ReadBody(Bex::CFile& file, uint64_t nLength, std::string_view buffered, CMessagePart::CBody& body)
{
    body.SetSize(static_cast<uint32_t>(nLength));
    uint32_t nBuffered = static_cast<uint32_t>(std::min<uint64_t>(buffered.size(), nLength));
    std::copy_n(buffered.begin(), nBuffered, body.Data());
    uint32_t nRest = body.Size() - nBuffered;
    return nRest == 0 || file.Read(body.Data() + nBuffered, nRest) == nRest;
}

SLoadResult OutOfMemory() { return SLoadResult::Failure({Platform::LIB_NO_MEMORY, Platform::SYS_NO_MEMORY}); }

Platform::SError LogTooBig(const Bex::CFile& file)
{
    Bex::LogError(Bex::MainLog(), "mail file \"%s\" is too big: more than %u header lines, %u MB of headers or 4 GB",
                  file.Name().Text(), CMessage::MAX_HEADER_LINES, CMessage::MAX_HEADER_BYTES >> 20);
    return {Platform::LIB_TOO_BIG, Platform::SYS_FILE_TOO_LARGE};
}

/// It would be tried again for ever.
Platform::SError LogTooBig(const Bex::CFile& file, const char* pszWhy)
{
    Bex::LogError(Bex::MainLog(), "mail file \"%s\" is too big: %s", file.Name().Text(), pszWhy);
    return {Platform::LIB_TOO_BIG, Platform::SYS_FILE_TOO_LARGE};
}

/// Whether Read takes back what Write writes: the fields and the blank line.
bool IsReadable(const Bex::CList<Bex::CSimpleString>& lines)
{
    size_t nBytes = LINE_END.size();
    int64_t nLines = 0;
    for (const Bex::CSimpleString& strLine : lines) {
        nBytes += strLine.Length() + LINE_END.size();
        nLines += 1 + std::ranges::count(strLine.View(), '\n');
    }
    return nBytes <= CMessage::MAX_HEADER_BYTES && nLines <= int64_t{CMessage::MAX_HEADER_LINES};
}

void WriteText(Bex::CFile& file, std::string_view text)
{
    if (!text.empty())
        file.Write(text.data(), static_cast<uint32_t>(text.size()));
}

/// The header block, a piece at a time: a large one is not in memory once more.
void WriteLines(Bex::CFile& file, Bex::CList<Bex::CSimpleString>& lines)
{
    std::string strPiece;
    for (Bex::CSimpleString strLine; lines.PopFirst(strLine); strPiece += LINE_END) {
        if (strPiece.size() + strLine.Length() <= PIECE) {
            strPiece += strLine.View();
            continue;
        }
        WriteText(file, strPiece);
        WriteText(file, strLine);
        strPiece.clear();
    }
    WriteText(file, strPiece += LINE_END);
}

} // namespace

CMessage::CMessage() : m_created(Bex::CTime::Now()), m_strDate(m_created.MailDate()) {}

CMessage::CMessage(const CMessage& other)
    : CMessagePart(other), m_created(Bex::CTime::Now()), m_strFromAddress(other.m_strFromAddress),
      m_strFromName(other.m_strFromName), m_strMessageID(other.m_strMessageID), m_strSubject(other.m_strSubject),
      m_strDate(other.m_strDate), m_strOrganization(other.m_strOrganization), m_strReferences(other.m_strReferences),
      m_strMimeVersion(other.m_strMimeVersion)
{}

int CMessage::SetHeader(Bex::CSimpleString strName, Bex::CSimpleString strValue)
{
    if (strName.EqualsNoCase("Message-ID")) {
        m_strMessageID = NormalizeAddress(strValue);
    } else if (strName.EqualsNoCase("From")) {
        if (!strValue.IsEmpty()) // empty counts as absent: the sender stands in
            SetFrom(strValue);
    } else if (strName.EqualsNoCase("Organization")) {
        m_strOrganization = std::move(strValue);
    } else if (strName.EqualsNoCase("Subject")) {
        m_strSubject = std::move(strValue);
    } else if (strName.EqualsNoCase("Date")) {
        if (!strValue.IsEmpty()) // likewise: without a Date the mail would get another one at each reading
            m_strDate = std::move(strValue);
    } else if (strName.EqualsNoCase("MIME-Version")) {
        m_strMimeVersion = std::move(strValue);
    } else if (strName.EqualsNoCase("References")) {
        m_strReferences = std::move(strValue);
    } else {
        return CMessagePart::SetHeader(std::move(strName), std::move(strValue));
    }
    return 1;
}

void CMessage::SetFromAddress(const Bex::CSimpleString& strAddress) { m_strFromAddress = strAddress; }

void CMessage::SetFrom(const Bex::CSimpleString& strValue)
{
    std::string_view value = strValue.View();
    if (Contains(value, '<') && Contains(value, '>')) {
        SetFromAddress(Bex::CSimpleString(Between(value, '<', '>')));
        size_t nQuote = value.find('"');
        if (nQuote == std::string_view::npos) {
            m_strFromName = value.substr(0, value.find('<'));
            m_strFromName.TrimRight();
        } else if (nQuote == value.rfind('"')) {
            m_strFromName = value.substr(nQuote + 1);
        } else {
            m_strFromName = Between(value, '"', '"');
        }
        return;
    }
    SetFromAddress(Bex::CSimpleString(value.substr(0, value.find(' '))));
    if (Contains(value, ' ') && Contains(value, '(') && Contains(value, ')'))
        m_strFromName = Between(value, '(', ')');
}

SLoadResult CMessage::Read(Bex::CFile& file, bool bHeadersOnly)
{
    try {
        int64_t iLength = file.Seek(0, Platform::ESeekFrom::End);
        file.Seek(0, Platform::ESeekFrom::Begin);
        CHeaderReader reader(file, MAX_HEADER_BYTES, MAX_HEADER_LINES);
        bool bHasHeader = false;
        if (!ReadHeaders(reader, bHasHeader))
            return SLoadResult::Failure(LogTooBig(file));
        if (IsEnvelopeTooBig())
            return SLoadResult::Failure(LogTooBig(file, "it has too many recipients, or an address is too long"));
        if (bHeadersOnly)
            return {};
        std::string_view buffered = reader.Buffered();
        uint64_t nBody = static_cast<uint64_t>(iLength) - std::min(reader.Offset(), static_cast<uint64_t>(iLength));
        if (!bHasHeader) {
            file.Seek(0, Platform::ESeekFrom::Begin);
            buffered = {};
            nBody = static_cast<uint64_t>(iLength);
        }
        if (nBody > UINT32_MAX)
            return SLoadResult::Failure(LogTooBig(file));
        if (nBody > ALWAYS_POSSIBLE && nBody > Platform::MostMemory())
            return SLoadResult::Failure(LogTooBig(file, "this process can never have that much memory"));
        CBody body;
        if (!ReadBody(file, nBody, buffered, body)) // somebody is at the file
            return SLoadResult::InUse();
        SetBody(std::move(body));
        NormalizeLineEndings();
        return {};
    } catch (const Bex::COutOfMemoryException&) {
        return OutOfMemory();
    } catch (const std::bad_alloc&) { // the standard library's containers
        return OutOfMemory();
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__);
        return SLoadResult::Failure(exception.Error());
    }
}

/// False when the header block is beyond the limits; bHasHeader tells whether any line had a colon.
bool CMessage::ReadHeaders(CHeaderReader& reader, bool& bHasHeader)
{
    std::string strField;
    CHeaderReader::EResult result = reader.Next(strField);
    for (; result == CHeaderReader::EResult::Field; result = reader.Next(strField)) {
        const std::optional<HeaderFields::SField> field = HeaderFields::Split(strField);
        if (!field)
            continue;
        bHasHeader = true;
        Bex::CSimpleString strName(field->name);
        Bex::CSimpleString strValue(field->value);
        if (strField.size() > PIECE) // a long one need not be in memory once more
            std::string().swap(strField);
        SetHeader(std::move(strName), std::move(strValue));
    }
    return result == CHeaderReader::EResult::End;
}

std::string CMessage::GetHeaderText(EWriteMode mode) const
{
    Bex::CList<Bex::CSimpleString> lines(false);
    BuildHeaderLines(lines, mode);
    size_t nLength = LINE_END.size();
    for (const Bex::CSimpleString& strLine : lines)
        nLength += strLine.Length() + LINE_END.size();
    std::string strText;
    strText.reserve(nLength);
    for (Bex::CSimpleString strLine; lines.PopFirst(strLine);)
        strText.append(strLine.View()).append(LINE_END);
    return strText += LINE_END;
}

SSaveResult CMessage::Write(Bex::CFile& file, EWriteMode mode) const
{
    try {
        Bex::CList<Bex::CSimpleString> lines(false);
        BuildHeaderLines(lines, mode);
        if (!IsReadable(lines))
            return {ESaveResult::Failed, LogTooBig(file)};
        WriteLines(file, lines);
        std::string_view body = Body().View();
        if (mode != EWriteMode::Queue && body.ends_with(END_OF_DATA))
            body.remove_suffix(END_OF_DATA.size());
        WriteText(file, body);
        file.Seek(0, Platform::ESeekFrom::Current); // no buffer keeps a failure back
        return {};
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__);
        return {ESaveResult::Failed, exception.Error()};
    }
}
