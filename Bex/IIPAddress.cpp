#include "Bex/IIPAddress.h"

#include "Platform/HostLookup.h"

namespace Bex {

CSimpleString IIPAddress::LookUpHostName() const
{
    std::string strName;
    if (Platform::LookupName(Raw(), strName) && !(Text() == std::string_view(strName)))
        return CSimpleString(strName);
    return CSimpleString::Formatted("[%s]", Text().Text());
}

} // namespace Bex
