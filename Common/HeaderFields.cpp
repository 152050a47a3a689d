#include "Common/HeaderFields.h"

#include "Bex/TextFunctions.h"

#include <algorithm>

namespace HeaderFields {

namespace {

size_t FindNoCase(std::string_view text, std::string_view key)
{
    auto found = std::search(text.begin(), text.end(), key.begin(), key.end(),
                             [](char a, char b) { return Bex::LowerAscii(a) == b; });
    return found == text.end() ? std::string_view::npos : static_cast<size_t>(found - text.begin());
}

} // namespace

std::optional<SField> Split(std::string_view line)
{
    line = line.substr(0, line.find('\0'));
    size_t nColon = line.find(':');
    if (nColon == std::string_view::npos)
        return std::nullopt;
    return SField{Bex::TrimmedView(line.substr(0, nColon)), Bex::TrimmedView(line.substr(nColon + 1))};
}

std::optional<std::string_view> Parameter(std::string_view value, std::string_view key)
{
    size_t nFound = FindNoCase(value, key);
    if (nFound == std::string_view::npos)
        return std::nullopt;
    value.remove_prefix(nFound + key.size());
    return Bex::Unquote(value.substr(0, value.find(';')));
}

std::string Unfolded(std::string_view text)
{
    std::string strText;
    strText.reserve(text.size());
    for (size_t nEnd = text.find("\r\n"); nEnd != std::string_view::npos; nEnd = text.find("\r\n")) {
        strText += text.substr(0, nEnd);
        text.remove_prefix(nEnd + 2);
    }
    return strText += text;
}

bool IsMultipart(std::string_view contentType)
{
    return FindNoCase(contentType, "multipart") != std::string_view::npos;
}

} // namespace HeaderFields
