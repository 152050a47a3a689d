#include "Platform/linux/tls/TlsErrors.h"

#include "Platform/TlsStatus.h"

#include <algorithm>
#include <iterator>
#include <openssl/err.h>

namespace Platform {

namespace {

struct SReasonCase
{
    int iReason;
    uint32_t dwStatus;
};

/// Reasons of libssl: what the peer's alert says (RFC 8446 6.2), then what this end found itself. Any other is a
/// message that was unexpected or badly formed.
constexpr SReasonCase REASON_CASES[] = {
    {SSL_R_SSLV3_ALERT_BAD_RECORD_MAC, SEC_E_MESSAGE_ALTERED},
    {SSL_R_TLSV1_ALERT_DECRYPTION_FAILED, SEC_E_DECRYPT_FAILURE},
    {SSL_R_SSLV3_ALERT_DECOMPRESSION_FAILURE, SEC_E_MESSAGE_ALTERED},
    {SSL_R_SSLV3_ALERT_NO_CERTIFICATE, SEC_E_CERT_UNKNOWN},
    {SSL_R_SSLV3_ALERT_BAD_CERTIFICATE, SEC_E_CERT_UNKNOWN},
    {SSL_R_SSLV3_ALERT_UNSUPPORTED_CERTIFICATE, SEC_E_CERT_UNKNOWN},
    {SSL_R_SSLV3_ALERT_CERTIFICATE_REVOKED, CRYPT_E_REVOKED},
    {SSL_R_SSLV3_ALERT_CERTIFICATE_EXPIRED, SEC_E_CERT_EXPIRED},
    {SSL_R_SSLV3_ALERT_CERTIFICATE_UNKNOWN, SEC_E_CERT_UNKNOWN},
    {SSL_R_TLSV1_ALERT_UNKNOWN_CA, SEC_E_UNTRUSTED_ROOT},
    {SSL_R_TLSV1_ALERT_ACCESS_DENIED, SEC_E_LOGON_DENIED},
    {SSL_R_TLSV1_ALERT_DECRYPT_ERROR, SEC_E_DECRYPT_FAILURE},
    {SSL_R_TLSV1_ALERT_PROTOCOL_VERSION, SEC_E_UNSUPPORTED_FUNCTION},
    {SSL_R_TLSV1_ALERT_INSUFFICIENT_SECURITY, SEC_E_ALGORITHM_MISMATCH},
    {SSL_R_TLSV1_ALERT_INTERNAL_ERROR, SEC_E_INTERNAL_ERROR},
    {SSL_R_TLSV1_UNRECOGNIZED_NAME, SEC_E_WRONG_PRINCIPAL},
    {SSL_R_TLSV13_ALERT_CERTIFICATE_REQUIRED, SEC_E_NO_CREDENTIALS},

    {SSL_R_NO_SHARED_CIPHER, SEC_E_ALGORITHM_MISMATCH},
    {SSL_R_NO_SUITABLE_SIGNATURE_ALGORITHM, SEC_E_ALGORITHM_MISMATCH},
    {SSL_R_NO_SUITABLE_GROUPS, SEC_E_ALGORITHM_MISMATCH},
    {SSL_R_NO_PROTOCOLS_AVAILABLE, SEC_E_ALGORITHM_MISMATCH},
    {SSL_R_UNSUPPORTED_PROTOCOL, SEC_E_ALGORITHM_MISMATCH},
    {SSL_R_WRONG_SSL_VERSION, SEC_E_ALGORITHM_MISMATCH},
    {SSL_R_WRONG_CIPHER_RETURNED, SEC_E_ALGORITHM_MISMATCH},
    {SSL_R_DH_KEY_TOO_SMALL, SEC_E_ALGORITHM_MISMATCH},
    {SSL_R_NO_CERTIFICATE_SET, SEC_E_NO_CREDENTIALS},
    {SSL_R_DECRYPTION_FAILED_OR_BAD_RECORD_MAC, SEC_E_MESSAGE_ALTERED},
    {SSL_R_PROTOCOL_IS_SHUTDOWN, SEC_E_CONTEXT_EXPIRED},
    {ERR_R_INTERNAL_ERROR, SEC_E_INTERNAL_ERROR},
};

} // namespace

uint32_t StatusOfSslError()
{
    const unsigned long dwError = ERR_peek_error();
    ERR_clear_error();
    if (dwError == 0)
        return SEC_E_INTERNAL_ERROR;
    const int iReason = ERR_GET_REASON(dwError);
    if (iReason == ERR_R_MALLOC_FAILURE)
        return SEC_E_INSUFFICIENT_MEMORY;
    if (ERR_GET_LIB(dwError) != ERR_LIB_SSL)
        return SEC_E_ILLEGAL_MESSAGE; // a key, a certificate or a signature of the peer that cannot be taken apart
    const auto* const pCase = std::find_if(std::begin(REASON_CASES), std::end(REASON_CASES),
                                           [iReason](const SReasonCase& row) { return row.iReason == iReason; });
    return pCase == std::end(REASON_CASES) ? SEC_E_ILLEGAL_MESSAGE : pCase->dwStatus;
}

uint32_t StatusOfSslResult(const SSL& ssl, int iResult)
{
    switch (SSL_get_error(&ssl, iResult)) {
    case SSL_ERROR_NONE:
        return SEC_E_OK;
    case SSL_ERROR_WANT_READ:
        return SEC_I_CONTINUE_NEEDED;
    case SSL_ERROR_WANT_X509_LOOKUP:
        return SEC_I_INCOMPLETE_CREDENTIALS;
    case SSL_ERROR_ZERO_RETURN:
        return SEC_I_CONTEXT_EXPIRED;
    default:
        return StatusOfSslError();
    }
}

} // namespace Platform
