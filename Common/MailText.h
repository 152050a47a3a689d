#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Text as it may stand in a mail. Stateless.

/// A text part (RFC 2045): its Content fields, one line each, and its body with CR LF line ends. Encoded when it
/// holds anything that could be changed on its way: other characters than ASCII, long lines, a dot that begins a line.
/// A type without a character set gets the one that the text is in.
struct STextPart
{
    std::vector<std::string> fields;
    std::string strBody;
};
STextPart MakeTextPart(std::string_view text, std::string_view contentType = "text/plain");

/// A header value in one line, control characters as blanks, cut to that many bytes.
std::string OneLine(std::string_view value, size_t nMost);
/// The same as encoded words (RFC 2047) when it holds other characters than ASCII, after the field's name.
std::string HeaderText(std::string_view name, std::string_view value, size_t nMost = 900);
/// A value for References: the ids of the old one, the latest if there are many, and one more.
std::string AppendReference(std::string_view references, std::string_view messageID);
bool HasEightBit(std::string_view text);
bool IsTransportable(std::string_view text); ///< as 7bit or 8bit (RFC 2045 2.8), lines that end with LF, too
