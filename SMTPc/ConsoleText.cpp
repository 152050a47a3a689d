#include "SMTPc/ConsoleText.h"

#include <algorithm>
#include <string>

void WriteConsole(std::FILE* pStream, std::string_view text)
{
    std::string strText(text);
    std::replace_if(
        strText.begin(), strText.end(),
        [](char c) {
            const bool bControl = static_cast<unsigned char>(c) < ' ' || c == '\x7f';
            return bControl && c != '\n' && c != '\r' && c != '\t';
        },
        '?');
    std::fwrite(strText.data(), 1, strText.size(), pStream);
}
