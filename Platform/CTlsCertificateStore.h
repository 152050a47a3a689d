#pragma once

#include "Platform/CTlsCertificate.h"

#include <vector>

namespace Platform {

enum class ETlsStore { User, Machine };

/// A personal store: a directory with one "*.pem" file per certificate, which holds the certificate first, then those
/// above it, and its private key. Where the environment does not say otherwise that is
///   machine: TOBIX_MACHINE_STORE, else /etc/tobix/certs, which must exist;
///   user:    TOBIX_USER_STORE, else ~/.tobix/certs, which is empty while it does not exist.
/// What holds no certificate is passed over. Keys are read when they are used, not here. One thread.
class CTlsCertificateStore
{
public:
    bool Open(ETlsStore store); ///< reads the certificates; false: LastError
    void Close();
    bool IsOpen() const { return m_bOpen; }
    const std::vector<CTlsCertificate>& Certificates() const { return m_certificates; }

private:
    bool m_bOpen = false;
    std::vector<CTlsCertificate> m_certificates;
};

} // namespace Platform
