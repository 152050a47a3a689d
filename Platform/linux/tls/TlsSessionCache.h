#pragma once

#include "Platform/linux/tls/TlsHandles.h"

namespace Platform {

/// Sessions that servers offered to resume, for the whole process and any thread. A session is taken out to be used,
/// so that no two connections share one: TLS 1.3 tickets are for one use (RFC 8446 C.4).
void KeepSession(const std::string& strKey, CSslSessionPtr pSession);
CSslSessionPtr TakeSession(const std::string& strKey); ///< null when there is none

/// Has the context's connections keep what servers offer, under the key that was put into them.
void KeepSessionsOf(SSL_CTX& context);
void SetSessionKey(SSL& ssl, const std::string& strKey); ///< the string outlives the connection

} // namespace Platform
