#include "Platform/DnsQuery.h"

#include "Platform/linux/dns/CDnsContext.h"

#include <string_view>
#include <strings.h>

namespace Platform {

uint32_t QueryDns(const char* pszName, EDnsType type, const CWaitLimit& limit, std::vector<std::string>& records)
{
    const std::string strName(pszName);
    if (strName.empty())
        return DNS_BAD_NAME;
    const std::shared_ptr<CDnsContext> pContext = CDnsContext::Current();
    // RFC 6761 6.3: "localhost" takes no suffix.
    if (strName.find('.') == std::string::npos && strcasecmp(pszName, "localhost") != 0) {
        for (const std::string& strSuffix : pContext->Suffixes()) {
            const std::string strFull = std::string(strName).append(".").append(strSuffix);
            const uint32_t dwStatus = pContext->Query(strFull, type, limit, records);
            if (dwStatus != DNS_NO_SUCH_NAME && dwStatus != DNS_NO_RECORDS)
                return dwStatus;
        }
    }
    return pContext->Query(strName, type, limit, records);
}

} // namespace Platform
