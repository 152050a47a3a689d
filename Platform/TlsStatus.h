#pragma once

#include <cstdint>

/// What the steps of a TLS connection and the certificate checks answer: 0 or another number without the top bit for
/// success, the documented code of the failure otherwise. OpenSSL's errors and alerts are translated in one place.
namespace Platform {

inline constexpr uint32_t SEC_E_OK = 0;
inline constexpr uint32_t SEC_I_CONTINUE_NEEDED = 0x00090312;
inline constexpr uint32_t SEC_I_CONTEXT_EXPIRED = 0x00090317; ///< the peer sent its close notification
inline constexpr uint32_t SEC_I_INCOMPLETE_CREDENTIALS = 0x00090320;
inline constexpr uint32_t SEC_I_RENEGOTIATE = 0x00090321;

inline constexpr uint32_t SEC_E_INSUFFICIENT_MEMORY = 0x80090300;
inline constexpr uint32_t SEC_E_INVALID_HANDLE = 0x80090301;
inline constexpr uint32_t SEC_E_UNSUPPORTED_FUNCTION = 0x80090302;
inline constexpr uint32_t SEC_E_INTERNAL_ERROR = 0x80090304;
inline constexpr uint32_t SEC_E_LOGON_DENIED = 0x8009030C;
inline constexpr uint32_t SEC_E_NO_CREDENTIALS = 0x8009030E;
inline constexpr uint32_t SEC_E_MESSAGE_ALTERED = 0x8009030F;
inline constexpr uint32_t SEC_E_CONTEXT_EXPIRED = 0x80090317;
inline constexpr uint32_t SEC_E_INCOMPLETE_MESSAGE = 0x80090318;
inline constexpr uint32_t SEC_E_BUFFER_TOO_SMALL = 0x80090321;
inline constexpr uint32_t SEC_E_WRONG_PRINCIPAL = 0x80090322;
inline constexpr uint32_t SEC_E_UNTRUSTED_ROOT = 0x80090325;
inline constexpr uint32_t SEC_E_ILLEGAL_MESSAGE = 0x80090326;
inline constexpr uint32_t SEC_E_CERT_UNKNOWN = 0x80090327;
inline constexpr uint32_t SEC_E_CERT_EXPIRED = 0x80090328;
inline constexpr uint32_t SEC_E_ENCRYPT_FAILURE = 0x80090329;
inline constexpr uint32_t SEC_E_DECRYPT_FAILURE = 0x80090330;
inline constexpr uint32_t SEC_E_ALGORITHM_MISMATCH = 0x80090331;

inline constexpr uint32_t E_INVALIDARG = 0x80070057;
inline constexpr uint32_t TRUST_E_CERT_SIGNATURE = 0x80096004;
inline constexpr uint32_t TRUST_E_BASIC_CONSTRAINTS = 0x80096019;
inline constexpr uint32_t TRUST_E_FAIL = 0x800B010B;
inline constexpr uint32_t CRYPT_E_NOT_FOUND = 0x80092004;
inline constexpr uint32_t CRYPT_E_REVOKED = 0x80092010;
inline constexpr uint32_t CRYPT_E_REVOCATION_OFFLINE = 0x80092013;
inline constexpr uint32_t CERT_E_EXPIRED = 0x800B0101;
inline constexpr uint32_t CERT_E_UNTRUSTEDROOT = 0x800B0109;
inline constexpr uint32_t CERT_E_CHAINING = 0x800B010A; ///< an issuer is missing
inline constexpr uint32_t CERT_E_CN_NO_MATCH = 0x800B010F;
inline constexpr uint32_t CERT_E_WRONG_USAGE = 0x800B0110;
inline constexpr uint32_t CERT_E_INVALID_NAME = 0x800B0114;

constexpr bool IsFailure(uint32_t dwStatus) { return (dwStatus & 0x80000000u) != 0; }

} // namespace Platform
