#include "Common/LocalHostIdentity.h"

#include "Common/Version.h"
#include "Platform/Host.h"
#include "Platform/HostLookup.h"

LocalHostIdentity LocalHostIdentity::Obtain(const Platform::CWaitLimit& limit)
{
    std::string strName;
    if (!Platform::HostName(strName))
        return {"0.0.0.0", "unknown"};
    std::string strCanonical;
    std::vector<Platform::SSocketAddress> addresses;
    if (!Platform::LookupHost(Platform::FAMILY_IPV4, strName.c_str(), addresses, &strCanonical, limit) ||
        addresses.empty())
        return {"0.0.0.0", strName.c_str()};
    return {Platform::AddressText(addresses.front()).c_str(), strCanonical.c_str()};
}

Bex::CSimpleString MakeReceivedValue(const Bex::CSimpleString& strHostName, const Bex::CSimpleString& strRecipient,
                                     Bex::CTime time)
{
    Bex::CSimpleString strClause;
    if (!strRecipient.IsEmpty())
        strClause.Format(" for <%s>", strRecipient.Text());
    return Bex::CSimpleString::Formatted("by %s (marlune Mail Delivery Agent %d.%02d.%04d.%d%s)\r\n\twith DMTP%s; %s",
                                         strHostName.Text(), Version::MAJOR, Version::MINOR, Version::BUILD,
                                         Version::REVISION, Version::SUFFIX, strClause.Text(), time.MailDate().Text());
}
