#pragma once

#include <arpa/inet.h>
#include <string>

namespace Platform {

/// A target's name as certificates and the server name indication (RFC 6066 3) write it.
struct STlsTargetName
{
    std::string strName;
    bool bAddress = false; ///< an IP literal
};

/// Without the brackets of an address literal ("IPv6:" within them, too) and without the root's dot.
inline STlsTargetName ParseTargetName(std::string strName)
{
    if (strName.size() > 2 && strName.front() == '[' && strName.back() == ']') {
        strName = strName.substr(1, strName.size() - 2);
        if (strName.starts_with("IPv6:"))
            strName.erase(0, 5);
    } else if (strName.size() > 1 && strName.back() == '.') {
        strName.pop_back();
    }
    in6_addr address;
    const bool bAddress =
        inet_pton(AF_INET, strName.c_str(), &address) == 1 || inet_pton(AF_INET6, strName.c_str(), &address) == 1;
    return {std::move(strName), bAddress};
}

} // namespace Platform
