#include "Common/SmartHostEntry.h"

#include <algorithm>
#include <cstdlib>
#include <string>

namespace {

void ParseCredentials(std::string_view text, SSmartHostEntry& entry)
{
    const size_t nColon = text.find(':');
    entry.strUser = text.substr(0, nColon);
    if (nColon != std::string_view::npos)
        entry.strPassword = text.substr(nColon + 1);
}

void ParsePort(std::string_view text, SSmartHostEntry& entry)
{
    entry.strPort = text;
    entry.wPort = static_cast<uint16_t>(strtol(std::string(text).c_str(), nullptr, 10));
    switch (text.empty() ? '\0' : text.back()) {
    case 's':
        entry.mode = ETLSMode::Direct;
        break;
    case 't':
        entry.mode = ETLSMode::Offered;
        break;
    case 'i':
        entry.mode = ETLSMode::None;
        break;
    default:
        break;
    }
}

} // namespace

SSmartHostEntry ParseSmartHostEntry(std::string_view text)
{
    SSmartHostEntry entry;
    const size_t nAt = text.rfind('@');
    if (nAt != std::string_view::npos) {
        ParseCredentials(text.substr(0, nAt), entry);
        text.remove_prefix(nAt + 1);
    }
    const bool bBracketed = !text.empty() && text.front() == '[';
    if (bBracketed)
        text.remove_prefix(1);
    const size_t nHostEnd = std::min(text.find(bBracketed ? ']' : ':'), text.size());
    entry.strHost = text.substr(0, nHostEnd);
    const size_t nColon = text.find(':', nHostEnd);
    if (nColon != std::string_view::npos)
        ParsePort(text.substr(nColon + 1), entry);
    return entry;
}
