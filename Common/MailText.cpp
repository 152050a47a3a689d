#include "Common/MailText.h"

#include "Bex/TextFunctions.h"
#include "Common/Encodings.h"

#include <algorithm>

namespace {

constexpr size_t LONGEST_LINE = 998; // RFC 5322 2.1.1
constexpr size_t ENCODED_LINE = 76;  // RFC 2045 6.7
constexpr size_t LONGEST_WORD = 75;  // RFC 2047 2, in a line of ENCODED_LINE characters
constexpr uint32_t MOST_REFERENCES = 20;
constexpr size_t LONGEST_REFERENCE = 250;

bool IsControl(char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }
bool IsEightBit(char c) { return static_cast<unsigned char>(c) >= 0x80; }

template <class TTake>
void ForEachLine(std::string_view text, TTake Take)
{
    while (!text.empty())
        Take(Bex::TakeLine(text));
}

bool NeedsEncoding(std::string_view line)
{
    return line.size() > LONGEST_LINE || line.starts_with('.') ||
           std::any_of(line.begin(), line.end(), [](char c) { return IsEightBit(c) || (IsControl(c) && c != '\t'); });
}

void AppendQuotedPrintable(std::string& strOut, std::string_view line)
{
    size_t nColumn = 0;
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        const bool bBlankAtEnd = (c == ' ' || c == '\t') && i + 1 == line.size();
        const bool bQuote = c == '=' || IsEightBit(c) || (IsControl(c) && c != '\t') || bBlankAtEnd ||
                            (c == '.' && nColumn == 0); // also where a soft break would put it
        if (nColumn + (bQuote ? 3 : 1) >= ENCODED_LINE) {
            strOut += "=\r\n";
            nColumn = 0;
        }
        if (bQuote || (c == '.' && nColumn == 0)) {
            constexpr char DIGITS[] = "0123456789ABCDEF";
            strOut += {'=', DIGITS[static_cast<unsigned char>(c) >> 4], DIGITS[c & 15]};
            nColumn += 3;
        } else {
            strOut += c;
            ++nColumn;
        }
    }
}

/// The longest piece of so many bytes that does not part a UTF-8 character; some in any case.
size_t WordEnd(std::string_view value, size_t nMost)
{
    size_t nEnd = std::min(value.size(), nMost);
    while (nEnd + 4 > nMost && nEnd > 1 && nEnd < value.size() && (value[nEnd] & 0xc0) == 0x80)
        --nEnd;
    return nEnd;
}

/// 8-bit text whose character set nobody told (RFC 1428).
const char* CharacterSetOf(std::string_view text) { return Bex::IsUtf8(text) ? "utf-8" : "unknown-8bit"; }

} // namespace

bool HasEightBit(std::string_view text) { return std::any_of(text.begin(), text.end(), IsEightBit); }

bool IsTransportable(std::string_view text)
{
    bool bAll = true;
    ForEachLine(text, [&](std::string_view line) {
        bAll = bAll && line.size() <= LONGEST_LINE && line.find_first_of(std::string_view("\0\r", 2)) == line.npos;
    });
    return bAll;
}

STextPart MakeTextPart(std::string_view text, std::string_view contentType)
{
    bool bEncode = false;
    ForEachLine(text, [&](std::string_view line) { bEncode = bEncode || NeedsEncoding(line); });
    std::string strType = OneLine(contentType, LONGEST_LINE / 2);
    if (Bex::CSimpleString(strType).Lowered().View().find("charset") == std::string_view::npos)
        strType.append("; charset=").append(CharacterSetOf(text));
    STextPart part;
    part.fields.push_back("Content-Type: " + strType);
    part.fields.push_back(std::string("Content-Transfer-Encoding: ") + (bEncode ? "quoted-printable" : "7bit"));
    ForEachLine(text, [&](std::string_view line) {
        if (bEncode)
            AppendQuotedPrintable(part.strBody, line);
        else
            part.strBody += line;
        part.strBody += "\r\n";
    });
    return part;
}

std::string OneLine(std::string_view value, size_t nMost)
{
    std::string strLine;
    for (const char c : value) {
        if (strLine.size() == nMost) {
            strLine.resize(WordEnd(strLine + c, nMost));
            break;
        }
        if (!IsControl(c))
            strLine += c;
        else if (!strLine.ends_with(' '))
            strLine += ' ';
    }
    return std::string(Bex::TrimmedView(strLine));
}

std::string HeaderText(std::string_view name, std::string_view value, size_t nMost)
{
    std::string strLine = OneLine(value, nMost);
    if (!HasEightBit(strLine))
        return strLine;
    const std::string strStart = std::string("=?") + CharacterSetOf(strLine) + "?B?";
    std::string strWords;
    size_t nRoom = ENCODED_LINE - std::min(name.size() + 2, ENCODED_LINE / 2);
    for (std::string_view rest = strLine; !rest.empty(); nRoom = LONGEST_WORD) {
        const size_t nEnd = WordEnd(rest, (std::min(nRoom, LONGEST_WORD) - strStart.size() - 2) / 4 * 3);
        strWords += (strWords.empty() ? "" : "\r\n\t") + strStart;
        strWords += Base64Encode(Bex::CSimpleString(rest.substr(0, nEnd)));
        strWords += "?=";
        rest.remove_prefix(nEnd);
    }
    return strWords;
}

std::string AppendReference(std::string_view references, std::string_view messageID)
{
    Bex::CList<Bex::CSimpleString> ids(false);
    Bex::Tokenize(references, " \t\r\n", ids, false);
    ids.Append(Bex::CSimpleString(std::string("<").append(OneLine(messageID, LONGEST_REFERENCE - 2)).append(">")));
    uint32_t nSkipped = ids.Count() - std::min(ids.Count(), MOST_REFERENCES);
    std::string strValue;
    for (const Bex::CSimpleString& strId : ids) {
        if (nSkipped > 0)
            --nSkipped;
        else if (strId.Length() <= LONGEST_REFERENCE)
            strValue.append(strValue.empty() ? "" : "\r\n\t").append(OneLine(strId, LONGEST_REFERENCE));
    }
    return strValue;
}
