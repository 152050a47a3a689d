#include "Common/NormalizeAddress.h"

#include "Bex/TextFunctions.h"

#include <algorithm>
#include <string>

namespace {

std::string_view AddressPart(std::string_view value)
{
    size_t nOpen = value.find('<');
    if (nOpen != std::string_view::npos && value.find('>') != std::string_view::npos) {
        value.remove_prefix(nOpen + 1);
        return value.substr(0, value.find('>'));
    }
    return value.substr(0, value.find('('));
}

} // namespace

Bex::CSimpleString NormalizeAddress(std::string_view value)
{
    std::string strAddress(Bex::TrimmedView(AddressPart(value)));
    std::erase_if(strAddress, [](char c) { return c == '"' || c == '\'' || c == '<' || c == '>'; });
    auto domain = std::find(strAddress.begin(), strAddress.end(), '@');
    std::transform(domain, strAddress.end(), domain, Bex::LowerAscii);
    return Bex::CSimpleString(std::string_view(strAddress));
}

Bex::CSimpleString WithLowerDomain(const Bex::CSimpleString& strAddress)
{
    if (!strAddress.Contains('@'))
        return strAddress;
    return Bex::CSimpleString::Formatted("%s@%s", strAddress.BeforeFirst('@').Text(),
                                         strAddress.AfterFirst('@').Lowered().Text());
}
