#pragma once

#include "Platform/CTlsCredentials.h"
#include "Platform/linux/tls/TlsHandles.h"

namespace Platform {

/// What the copies of one CTlsCredentials and the contexts made with them share.
struct STlsCredentialState
{
    ETlsEnd end = ETlsEnd::Client;
    CSslContextPtr pContext;
    std::string strSessionScope; ///< sessions may be resumed among credentials that have the same
};

} // namespace Platform
