#pragma once

#include "Platform/linux/tls/TlsHandles.h"

namespace Platform {

/// Takes out a session that a server of that key offered to resume, for the whole process and any thread. No two
/// connections share one: TLS 1.3 tickets are for one use (RFC 8446 C.4). Null when there is none.
CSslSessionPtr TakeSession(const std::string& strKey);

/// Has the context's connections offer what their servers do; each to its COfferedSessions.
void KeepSessionsOf(SSL_CTX& context);

/// What the server of one connection offers to resume. The process keeps it once the server's certificate is accepted
/// and no sooner. Outlives its connection; used on its thread.
class COfferedSessions
{
public:
    void Watch(SSL& ssl, const std::string& strKey);
    void Offer(SSL& ssl,
               CSslSessionPtr pSession); ///< without a key, or beyond what one server may offer, it is dropped
    void Accept();
    void Hold() { m_bAccepted = false; } ///< the certificate may be another one from now on

private:
    struct SOffer
    {
        CSslSessionPtr pSession;
        size_t nBytes;
    };
    std::string m_strKey;
    std::vector<SOffer> m_held;
    bool m_bAccepted = false;
};

} // namespace Platform
