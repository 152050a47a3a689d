#pragma once

#include "Platform/CTlsCertificateStore.h"
#include "Platform/TlsStatus.h"

#include <memory>

namespace Platform {

/// Bits of the enabled protocols. Either end understands the other end's bits, too.
inline constexpr uint32_t TLS_PROTOCOL_SSL2 = 0x0008;
inline constexpr uint32_t TLS_PROTOCOL_SSL3 = 0x0020;
inline constexpr uint32_t TLS_PROTOCOL_TLS1_0 = 0x0080;
inline constexpr uint32_t TLS_PROTOCOL_TLS1_1 = 0x0200;
inline constexpr uint32_t TLS_PROTOCOL_TLS1_2 = 0x0800;
inline constexpr uint32_t TLS_PROTOCOL_TLS1_3 = 0x2000;

enum class ETlsEnd { Client, Server };

/// What credentials are made of. No certificate is ever presented but this one, and the peer's is never judged by the
/// steps: that is the caller's.
struct STlsCredentialSettings
{
    static constexpr uint32_t VERSION = 4;
    uint32_t dwVersion = VERSION;
    CTlsCertificate certificate;                      ///< to present; may be none on a client
    const CTlsCertificateStore* pRootStore = nullptr; ///< a server tells clients these authorities
    uint32_t dwProtocols = 0;                         ///< 0: the system's choice
};

struct STlsCredentialState;

/// One end's certificate and protocols, ready for contexts. Copies share them. One thread.
class CTlsCredentials
{
public:
    uint32_t Acquire(ETlsEnd end, const STlsCredentialSettings& settings);
    void Free() { m_pState.reset(); }
    const std::shared_ptr<STlsCredentialState>& State() const { return m_pState; }

private:
    uint32_t Make(ETlsEnd end, const STlsCredentialSettings& settings);

    std::shared_ptr<STlsCredentialState> m_pState;
};

} // namespace Platform
