#include "Bex/DnsRecords.h"

#include <string>
#include <utility>

namespace Bex {

namespace {

// RFC 1035 2.3.4
constexpr size_t LONGEST_NAME = 255;
constexpr size_t LONGEST_LABEL = 63;

void AppendEscaped(std::string& strName, char c)
{
    constexpr std::string_view ACTIVE = ".\\\"();@$";
    if (ACTIVE.find(c) != std::string_view::npos) {
        strName += '\\';
        strName += c;
    } else if (c > ' ' && c <= '~') {
        strName += c;
    } else {
        const auto nByte = static_cast<unsigned char>(c);
        strName += '\\';
        for (const int iUnit : {100, 10, 1})
            strName += static_cast<char>('0' + nByte / iUnit % 10);
    }
}

/// What follows a length byte; false when there is not that much.
bool TakeCounted(std::string_view& data, std::string_view& part)
{
    const size_t nLength = static_cast<unsigned char>(data.front());
    if (nLength + 1 > data.size())
        return false;
    part = data.substr(1, nLength);
    data.remove_prefix(nLength + 1);
    return true;
}

} // namespace

bool DecodeDnsName(std::string_view data, CSimpleString& strName)
{
    if (data.size() > LONGEST_NAME)
        return false;
    std::string strText;
    for (std::string_view label; !data.empty();) {
        if (!TakeCounted(data, label) || label.size() > LONGEST_LABEL)
            return false;
        if (label.empty() && !data.empty())
            return false;
        if (label.empty()) {
            strName = strText.empty() ? std::string_view(".") : std::string_view(strText);
            return true;
        }
        if (!strText.empty())
            strText += '.';
        for (const char c : label)
            AppendEscaped(strText, c);
    }
    return false;
}

bool DecodeDnsMX(std::string_view data, SMailExchange& exchange)
{
    SMailExchange decoded;
    if (data.size() < sizeof(decoded.wPreference) || !DecodeDnsName(data.substr(2), decoded.strName))
        return false;
    const auto nHigh = static_cast<unsigned char>(data[0]);
    const auto nLow = static_cast<unsigned char>(data[1]);
    decoded.wPreference = static_cast<uint16_t>(nHigh << 8 | nLow);
    exchange = std::move(decoded);
    return true;
}

bool DecodeDnsTXT(std::string_view data, CSimpleString& strText)
{
    std::string strJoined;
    for (std::string_view part; !data.empty();) {
        if (!TakeCounted(data, part))
            return false;
        strJoined += part;
    }
    strText = std::string_view(strJoined);
    return true;
}

} // namespace Bex
