#pragma once

#include <optional>
#include <string>
#include <string_view>

/// The fields of a header block that lies in memory (RFC 5322 2.2), as views into it: nothing is copied, so that a
/// block may be as large as it likes. Stateless, any thread.
namespace HeaderFields {

struct SField
{
    std::string_view name;  ///< trimmed
    std::string_view value; ///< trimmed; folds are kept
};

/// Nothing when the line has no colon. A NUL ends the line.
std::optional<SField> Split(std::string_view line);

/// What stands behind the key (in lower case), wherever it is, up to ";" and without enclosing quotes; folds are kept.
std::optional<std::string_view> Parameter(std::string_view value, std::string_view key);
std::string Unfolded(std::string_view text); ///< without the line breaks
bool IsMultipart(std::string_view contentType);

/// Visits each line of the block at the start of the bytes, with its folds. Gives what stands behind the blank line,
/// or nothing when there is no blank line with at least one byte behind it.
template <class TVisit>
std::optional<std::string_view> ForEachLine(std::string_view bytes, TVisit Visit)
{
    size_t nField = 0; // where the field that is being assembled begins
    for (size_t nLine = 0;;) {
        size_t nEnd = bytes.find("\r\n", nLine);
        if (nEnd == std::string_view::npos || nEnd + 2 >= bytes.size())
            return std::nullopt;
        if (nEnd == nLine)
            return bytes.substr(nEnd + 2);
        nLine = nEnd + 2;
        if (bytes[nLine] == '\t' || bytes[nLine] == ' ')
            continue;
        Visit(bytes.substr(nField, nEnd - nField));
        nField = nLine;
    }
}

} // namespace HeaderFields
