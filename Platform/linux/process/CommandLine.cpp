#include "Platform/CommandLine.h"

#include <algorithm>

namespace Platform {

namespace {

constexpr std::string_view BLANKS = " \t\r\n";

/// Takes one argument off the front. Backslashes mean themselves unless a quote follows them: then two make one, and
/// an odd one makes the quote an ordinary character. Two quotes within a quoted stretch make one as well.
std::string TakeArgument(std::string_view& strRest)
{
    std::string strArgument;
    bool bQuoted = false;
    while (!strRest.empty() && (bQuoted || BLANKS.find(strRest.front()) == std::string_view::npos)) {
        const size_t nBackslashes = std::min(strRest.find_first_not_of('\\'), strRest.size());
        strRest.remove_prefix(nBackslashes);
        const bool bAtQuote = !strRest.empty() && strRest.front() == '"';
        strArgument.append(bAtQuote ? nBackslashes / 2 : nBackslashes, '\\');
        if (bAtQuote) {
            strRest.remove_prefix(1);
            const bool bDoubled = bQuoted && !strRest.empty() && strRest.front() == '"';
            if (nBackslashes % 2 != 0) {
                strArgument += '"';
            } else if (bDoubled) {
                strArgument += '"';
                strRest.remove_prefix(1);
            } else {
                bQuoted = !bQuoted;
            }
        } else if (nBackslashes == 0) {
            strArgument += strRest.front();
            strRest.remove_prefix(1);
        }
    }
    return strArgument;
}

} // namespace

std::string QuoteArgument(std::string_view strArgument)
{
    std::string strQuoted = "\"";
    size_t nBackslashes = 0;
    for (const char ch : strArgument) {
        if (ch == '"')
            strQuoted.append(nBackslashes + 1, '\\');
        nBackslashes = ch == '\\' ? nBackslashes + 1 : 0;
        strQuoted += ch;
    }
    strQuoted.append(nBackslashes, '\\');
    return strQuoted += '"';
}

std::vector<std::string> SplitCommandLine(std::string_view strCommandLine)
{
    std::vector<std::string> arguments;
    for (;;) {
        strCommandLine.remove_prefix(std::min(strCommandLine.find_first_not_of(BLANKS), strCommandLine.size()));
        if (strCommandLine.empty())
            return arguments;
        arguments.push_back(TakeArgument(strCommandLine));
    }
}

} // namespace Platform
