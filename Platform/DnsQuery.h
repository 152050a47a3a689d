#pragma once

#include "Platform/CWaitLimit.h"

#include <cstdint>
#include <string>
#include <vector>

/// Questions to the domain name system, answered from a cache that the whole process shares. Any thread.
///
/// The name servers are those of the system's resolv.conf (or of the file that the environment variable
/// TOBIX_RESOLV_CONF names; "nameserver 127.0.0.1@5353" names a port), which is read again once it has changed.
namespace Platform {

enum class EDnsType : uint16_t { A = 1, CNAME = 5, MX = 15, TXT = 16, AAAA = 28 };

/// How a question ended; other codes are 9000 and the response code of RFC 6895 2.3.
enum EDnsStatus : uint32_t {
    DNS_OK = 0,
    DNS_NO_MEMORY = 8,
    DNS_BAD_NAME = 123,
    DNS_CANCELED = 1223, ///< by the stop
    DNS_TIMED_OUT = 1460,
    DNS_SERVER_FAILED = 9002,
    DNS_NO_SUCH_NAME = 9003,
    DNS_NO_RECORDS = 9501,
    DNS_BAD_PACKET = 9502,
    DNS_NO_SERVER = 9852,
};

/// Gives the data of each record of the type as it stood on the wire, names in it not compressed, in the order of the
/// answer. A name without a dot is asked for with the search suffixes of resolv.conf first, then as it is.
uint32_t QueryDns(const char* pszName, EDnsType type, const CWaitLimit& limit, std::vector<std::string>& records);

} // namespace Platform
