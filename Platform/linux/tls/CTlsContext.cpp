#include "Platform/CTlsContext.h"

#include "Platform/linux/tls/STlsCredentialState.h"
#include "Platform/linux/tls/TlsErrors.h"
#include "Platform/linux/tls/TlsSessionCache.h"
#include "Platform/linux/tls/TlsTargetName.h"

#include <openssl/tls1.h>

namespace Platform {

namespace {

// RFC 8446 5.1, RFC 5246 6.2.
constexpr size_t RECORD_HEADER = 5;
constexpr size_t LARGEST_PLAIN = 16384;
constexpr size_t LARGEST_OVERHEAD = 2048;
constexpr uint8_t FIRST_TYPE = 20; // change_cipher_spec
constexpr uint8_t LAST_TYPE = 24;  // heartbeat
constexpr uint8_t MAJOR_VERSION = 3;

// Key updates, tickets and the like of one connection: each costs us more than the peer.
constexpr unsigned MOST_WITHOUT_DATA = 2000;
constexpr size_t LONGEST_SERVER_NAME = 255; // RFC 1035 2.3.4

/// The length of the record that the bytes begin with. Garbage is told from the first byte that is wrong, so that no
/// peer keeps us waiting for a record that never comes.
uint32_t MeasureRecord(const STlsBuffer& buffer, size_t& nRecord)
{
    const uint8_t* const pBytes = buffer.pData;
    if (buffer.nLength > 0 && (pBytes[0] < FIRST_TYPE || pBytes[0] > LAST_TYPE))
        return SEC_E_ILLEGAL_MESSAGE;
    if (buffer.nLength > 1 && pBytes[1] != MAJOR_VERSION)
        return SEC_E_ILLEGAL_MESSAGE;
    if (buffer.nLength < RECORD_HEADER)
        return SEC_E_INCOMPLETE_MESSAGE;
    const size_t nBody = static_cast<size_t>(pBytes[3]) << 8 | pBytes[4];
    if (nBody > LARGEST_PLAIN + LARGEST_OVERHEAD)
        return SEC_E_ILLEGAL_MESSAGE;
    nRecord = RECORD_HEADER + nBody;
    return buffer.nLength < nRecord ? SEC_E_INCOMPLETE_MESSAGE : SEC_E_OK;
}

/// The server asks for a certificate and we have none: first the caller hears of it, then we go on without.
int OnCertificateWanted(SSL*, void* pGoOnWithout) { return *static_cast<const bool*>(pGoOnWithout) ? 1 : -1; }

/// What follows the first nUsed bytes of a buffer.
STlsBuffer ExtraAfter(const STlsBuffer& buffer, size_t nUsed)
{
    if (nUsed >= buffer.nLength)
        return {};
    return {ETlsBuffer::Extra, buffer.pData + nUsed, buffer.nLength - nUsed};
}

} // namespace

struct CTlsContext::SState
{
    std::shared_ptr<STlsCredentialState> pCredentials;
    COfferedSessions offered; ///< the connection points to it, as to the next
    bool bGoOnWithoutCertificate = false;
    CSslPtr pSsl;
    BIO* pReceived = nullptr; ///< the connection's
    BIO* pToSend = nullptr;
    bool bShutdown = false;
    unsigned nWithoutData = 0; ///< records

    bool Make(uint32_t dwRequest);
    void AimAt(const std::string& strTarget);
    bool Feed(const STlsBuffer& buffer, size_t nRecord);
    size_t Waiting() const { return BIO_ctrl_pending(pToSend); }
    void TakeToken(STlsToken& token);
    uint32_t Handshake(std::span<STlsBuffer, 2> input);
    uint32_t SayGoodbye();
};

bool CTlsContext::SState::Make(uint32_t dwRequest)
{
    pSsl.reset(SSL_new(pCredentials->pContext.get()));
    CBioPtr pIn(BIO_new(BIO_s_mem()));
    CBioPtr pOut(BIO_new(BIO_s_mem()));
    if (pSsl == nullptr || pIn == nullptr || pOut == nullptr)
        return false;
    pReceived = pIn.release();
    pToSend = pOut.release();
    SSL_set_bio(pSsl.get(), pReceived, pToSend);
    if (pCredentials->end == ETlsEnd::Client) {
        SSL_set_connect_state(pSsl.get());
        return true;
    }
    SSL_set_accept_state(pSsl.get());
    if ((dwRequest & TLS_REQUEST_MUTUAL_AUTH) != 0)
        SSL_set_verify(pSsl.get(), SSL_VERIFY_PEER, nullptr);
    return true;
}

/// A client tells whom it means, asks for a revocation answer, and goes on with an earlier session if there is one.
void CTlsContext::SState::AimAt(const std::string& strTarget)
{
    const STlsTargetName target = ParseTargetName(strTarget);
    if (!target.strName.empty() && !target.bAddress && target.strName.size() <= LONGEST_SERVER_NAME)
        SSL_set_tlsext_host_name(pSsl.get(), target.strName.c_str());
    SSL_set_tlsext_status_type(pSsl.get(), TLSEXT_STATUSTYPE_ocsp);
    if (SSL_get_certificate(pSsl.get()) == nullptr)
        SSL_set_cert_cb(pSsl.get(), &OnCertificateWanted, &bGoOnWithoutCertificate);
    if (target.strName.empty())
        return;
    const std::string strSessionKey = pCredentials->strSessionScope + ' ' + target.strName;
    offered.Watch(*pSsl, strSessionKey);
    if (const CSslSessionPtr pSession = TakeSession(strSessionKey))
        SSL_set_session(pSsl.get(), pSession.get());
}

bool CTlsContext::SState::Feed(const STlsBuffer& buffer, size_t nRecord)
{
    return BIO_write(pReceived, buffer.pData, static_cast<int>(nRecord)) == static_cast<int>(nRecord);
}

void CTlsContext::SState::TakeToken(STlsToken& token)
{
    token.bytes.resize(Waiting());
    if (!token.bytes.empty())
        BIO_read(pToSend, token.bytes.data(), static_cast<int>(token.bytes.size()));
}

/// Takes at most one record, and only when it can be used now: what the connection has not asked for stays the
/// caller's, so that nothing waits where no one would look for it.
uint32_t CTlsContext::SState::Handshake(std::span<STlsBuffer, 2> input)
{
    const bool bTakes = !SSL_is_init_finished(pSsl.get()) && SSL_want(pSsl.get()) != SSL_X509_LOOKUP;
    size_t nUsed = 0;
    if (bTakes && input[0].nLength > 0) {
        const uint32_t dwMeasured = MeasureRecord(input[0], nUsed);
        if (dwMeasured != SEC_E_OK)
            return dwMeasured;
        if (!Feed(input[0], nUsed))
            return SEC_E_INSUFFICIENT_MEMORY;
    }
    input[1] = ExtraAfter(input[0], nUsed);
    return StatusOfSslResult(*pSsl, SSL_do_handshake(pSsl.get()));
}

/// The close notification, or the alert that is still to be told. A session that ends properly may be resumed.
uint32_t CTlsContext::SState::SayGoodbye()
{
    const int iResult = SSL_shutdown(pSsl.get());
    if (iResult < 0 && Waiting() == 0)
        return StatusOfSslError();
    ERR_clear_error();
    const bool bOneUse = SSL_version(pSsl.get()) >= TLS1_3_VERSION;
    if (iResult >= 0 && !bOneUse && SSL_session_reused(pSsl.get()))
        offered.Offer(*pSsl, CSslSessionPtr(SSL_get1_session(pSsl.get())));
    return SEC_E_OK;
}

CTlsContext::CTlsContext() = default;
CTlsContext::~CTlsContext() = default;
CTlsContext::CTlsContext(CTlsContext&&) noexcept = default;
CTlsContext& CTlsContext::operator=(CTlsContext&&) noexcept = default;

void CTlsContext::Delete() { m_pState.reset(); }

uint32_t CTlsContext::Step(const CTlsCredentials& credentials, const std::string& strTarget, uint32_t dwRequest,
                           std::span<STlsBuffer, 2> input, STlsToken& token)
{
    token = {};
    ERR_clear_error();
    if (m_pState == nullptr) {
        auto pState = std::make_unique<SState>();
        pState->pCredentials = credentials.State();
        if (pState->pCredentials == nullptr)
            return SEC_E_INVALID_HANDLE;
        if (!pState->Make(dwRequest))
            return SEC_E_INSUFFICIENT_MEMORY;
        if (pState->pCredentials->end == ETlsEnd::Client)
            pState->AimAt(strTarget);
        m_pState = std::move(pState);
    }
    m_pState->bGoOnWithoutCertificate = (dwRequest & TLS_REQUEST_USE_SUPPLIED_CREDS) != 0;
    const uint32_t dwStatus = m_pState->bShutdown ? m_pState->SayGoodbye() : m_pState->Handshake(input);
    if (dwStatus == SEC_E_INCOMPLETE_MESSAGE)
        return dwStatus;
    m_pState->TakeToken(token);
    token.bExtendedError = IsFailure(dwStatus) && !token.bytes.empty();
    return dwStatus;
}

uint32_t CTlsContext::QueryStreamSizes(STlsStreamSizes& sizes) const
{
    if (m_pState == nullptr)
        return SEC_E_INVALID_HANDLE;
    sizes = {RECORD_HEADER, LARGEST_PLAIN, LARGEST_OVERHEAD};
    return SEC_E_OK;
}

uint32_t CTlsContext::QueryPeerCertificate(CTlsCertificate& certificate) const
{
    if (m_pState == nullptr)
        return SEC_E_INVALID_HANDLE;
    SSL* const pSsl = m_pState->pSsl.get();
    auto pData = std::make_shared<STlsCertificateData>();
    pData->pCertificate.reset(SSL_get1_peer_certificate(pSsl));
    if (pData->pCertificate == nullptr)
        return SEC_E_NO_CREDENTIALS;
    const STACK_OF(X509)* const pChain = SSL_get_peer_cert_chain(pSsl);
    for (int i = 0; i < sk_X509_num(pChain); ++i)
        pData->above.push_back(Share(sk_X509_value(pChain, i)));
    const unsigned char* pAnswer = nullptr;
    const long iLength = SSL_get_tlsext_status_ocsp_resp(pSsl, &pAnswer);
    if (pAnswer != nullptr && iLength > 0)
        pData->ocspAnswer.assign(pAnswer, pAnswer + iLength);
    certificate = CTlsCertificate(std::move(pData));
    return SEC_E_OK;
}

uint32_t CTlsContext::Encrypt(std::span<STlsBuffer, 4> buffers)
{
    if (m_pState == nullptr)
        return SEC_E_INVALID_HANDLE;
    ERR_clear_error();
    const STlsBuffer& header = buffers[0];
    const STlsBuffer& data = buffers[1];
    STlsBuffer& trailer = buffers[2];
    size_t nWritten = 0;
    if (data.nLength > LARGEST_PLAIN)
        return SEC_E_BUFFER_TOO_SMALL;
    const int iResult = SSL_write_ex(m_pState->pSsl.get(), data.pData, data.nLength, &nWritten);
    if (iResult != 1) {
        const uint32_t dwStatus = StatusOfSslResult(*m_pState->pSsl, iResult);
        return IsFailure(dwStatus) ? dwStatus : SEC_E_ENCRYPT_FAILURE;
    }
    // What the connection had to say by itself before, such as the answer to a key update, goes out first.
    const size_t nBefore = header.nLength + data.nLength;
    const size_t nRecord = m_pState->Waiting();
    if (nRecord < nBefore || nRecord > nBefore + trailer.nLength)
        return SEC_E_BUFFER_TOO_SMALL;
    BIO_read(m_pState->pToSend, header.pData, static_cast<int>(nRecord));
    trailer.nLength = nRecord - nBefore;
    return SEC_E_OK;
}

uint32_t CTlsContext::Decrypt(std::span<STlsBuffer, 4> buffers)
{
    if (m_pState == nullptr)
        return SEC_E_INVALID_HANDLE;
    ERR_clear_error();
    const STlsBuffer received = buffers[0];
    size_t nRecord = 0;
    const uint32_t dwMeasured = MeasureRecord(received, nRecord);
    if (dwMeasured != SEC_E_OK)
        return dwMeasured;
    if (!m_pState->Feed(received, nRecord))
        return SEC_E_INSUFFICIENT_MEMORY;

    SSL* const pSsl = m_pState->pSsl.get();
    size_t nPlain = 0;
    int iResult = 1;
    while (iResult == 1 && nPlain < nRecord) {
        size_t nRead = 0;
        iResult = SSL_read_ex(pSsl, received.pData + nPlain, nRecord - nPlain, &nRead);
        nPlain += nRead;
    }
    const uint32_t dwStatus = StatusOfSslResult(*pSsl, iResult);
    if (IsFailure(dwStatus) || dwStatus == SEC_I_CONTEXT_EXPIRED)
        return dwStatus;
    buffers[0] = {};
    buffers[1] = {nPlain > 0 ? ETlsBuffer::Data : ETlsBuffer::Empty, received.pData, nPlain};
    buffers[3] = ExtraAfter(received, nRecord);
    if (nPlain == 0 && ++m_pState->nWithoutData > MOST_WITHOUT_DATA)
        return SEC_E_ILLEGAL_MESSAGE;
    if (IsHandshaking())
        m_pState->offered.Hold();
    const bool bMustAnswer = IsHandshaking() || m_pState->Waiting() > 0;
    return nPlain == 0 && bMustAnswer ? SEC_I_RENEGOTIATE : SEC_E_OK;
}

bool CTlsContext::IsHandshaking() const { return m_pState != nullptr && !SSL_is_init_finished(m_pState->pSsl.get()); }

void CTlsContext::AcceptPeer()
{
    if (m_pState != nullptr)
        m_pState->offered.Accept();
}

uint32_t CTlsContext::ApplyShutdown()
{
    if (m_pState == nullptr)
        return SEC_E_INVALID_HANDLE;
    m_pState->bShutdown = true;
    return SEC_E_OK;
}

bool CTlsContext::IsResumed() const { return m_pState != nullptr && SSL_session_reused(m_pState->pSsl.get()) == 1; }

} // namespace Platform
