#pragma once

#include "Platform/linux/tls/TlsHandles.h"

namespace Platform {

/// The system's root certificates as they are now; null when OpenSSL cannot make a store. Thread-safe.
std::shared_ptr<X509_STORE> TrustStore();

} // namespace Platform
