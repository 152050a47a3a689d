#pragma once

#include "Platform/CTlsCredentials.h"

#include <span>

namespace Platform {

enum class ETlsBuffer { Empty, Data, Token, Extra, StreamTrailer, StreamHeader };

/// A part of the caller's memory and what it holds.
struct STlsBuffer
{
    ETlsBuffer type = ETlsBuffer::Empty;
    uint8_t* pData = nullptr;
    size_t nLength = 0;
};

/// What a handshake step wants sent; also with a failure, then with the alert that tells the peer.
struct STlsToken
{
    std::vector<uint8_t> bytes;
    bool bExtendedError = false; ///< the step failed and the token tells why
};

struct STlsStreamSizes
{
    uint32_t dwHeader;
    uint32_t dwMaximumMessage;
    uint32_t dwTrailer;
};

/// What a step is asked for besides what TLS always gives.
inline constexpr uint32_t TLS_REQUEST_MUTUAL_AUTH = 0x00000002;        ///< a server asks for a certificate
inline constexpr uint32_t TLS_REQUEST_USE_SUPPLIED_CREDS = 0x00000080; ///< a client goes on without a certificate

/// One TLS connection without a socket: bytes go in and come out. Looks at one record at a time and leaves the rest to
/// the caller. Sessions that servers offer to resume are kept for the process, by target name, once the caller accepts
/// the server. One thread.
class CTlsContext
{
public:
    CTlsContext();
    ~CTlsContext();
    CTlsContext(CTlsContext&&) noexcept;
    CTlsContext& operator=(CTlsContext&&) noexcept;

    bool Exists() const { return m_pState != nullptr; }
    void Delete();

    /// A handshake step; the first one makes the context. input[0] is the token received, if any; input[1] comes
    /// back as Extra when bytes were left over. Also gives the close notification after ApplyShutdown.
    uint32_t Step(const CTlsCredentials& credentials, const std::string& strTarget, uint32_t dwRequest,
                  std::span<STlsBuffer, 2> input, STlsToken& token);
    uint32_t QueryStreamSizes(STlsStreamSizes& sizes) const;
    bool IsHandshaking() const; ///< the first handshake, or another one that the peer began
    void AcceptPeer();          ///< after each handshake, when its certificate is fine
    uint32_t QueryPeerCertificate(CTlsCertificate& certificate) const; ///< SEC_E_NO_CREDENTIALS: the peer has none
    /// In place: StreamHeader, Data and StreamTrailer must adjoin. Their lengths come back as those of the record.
    uint32_t Encrypt(std::span<STlsBuffer, 4> buffers);
    /// In place: one record from the front of the Data buffer; the buffers come back as what was found in it. A peer
    /// that sends more than 2000 records without data in all has failed (SEC_E_ILLEGAL_MESSAGE).
    uint32_t Decrypt(std::span<STlsBuffer, 4> buffers);
    uint32_t ApplyShutdown();
    bool IsResumed() const; ///< the handshake went on with an earlier session

private:
    struct SState;
    std::unique_ptr<SState> m_pState;
};

} // namespace Platform
