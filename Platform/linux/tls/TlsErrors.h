#pragma once

#include <cstdint>
#include <openssl/ssl.h>

namespace Platform {

/// The status of an operation that gave iResult on the connection: SEC_E_OK, SEC_I_CONTINUE_NEEDED when more must be
/// received, SEC_I_INCOMPLETE_CREDENTIALS, SEC_I_CONTEXT_EXPIRED, or the failure that OpenSSL's error queue of this
/// thread tells, which is emptied.
uint32_t StatusOfSslResult(const SSL& ssl, int iResult);

/// The failure in OpenSSL's error queue of this thread, which is emptied.
uint32_t StatusOfSslError();

} // namespace Platform
