#pragma once

#include "Platform/CWaitLimit.h"

#include <string>
#include <vector>

namespace Platform {

/// Gets what a "http:" address names (RFC 1945). False when it could not be had in time, whatever the server keeps
/// sending, is larger than 16 MiB behind a head of 64 KiB, or the address is of another kind. Any thread.
bool HttpGet(const std::string& strUrl, const CWaitLimit& limit, std::vector<unsigned char>& answer);
/// The same for the answer to an OCSP request (RFC 6960 A).
bool HttpAskOcsp(const std::string& strUrl, const std::vector<unsigned char>& request, const CWaitLimit& limit,
                 std::vector<unsigned char>& answer);

} // namespace Platform
