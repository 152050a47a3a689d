#include "Platform/linux/tls/STlsCredentialState.h"

#include "Platform/CImmortal.h"
#include "Platform/linux/tls/TlsErrors.h"
#include "Platform/linux/tls/TlsSessionCache.h"

#include <array>
#include <map>
#include <mutex>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

namespace Platform {

namespace {

struct SProtocol
{
    uint32_t dwBits; ///< of both ends
    int iVersion;
    uint64_t dwDisable;
};

constexpr SProtocol PROTOCOLS[] = {
    {TLS_PROTOCOL_TLS1_0 | TLS_PROTOCOL_TLS1_0 >> 1, TLS1_VERSION, SSL_OP_NO_TLSv1},
    {TLS_PROTOCOL_TLS1_1 | TLS_PROTOCOL_TLS1_1 >> 1, TLS1_1_VERSION, SSL_OP_NO_TLSv1_1},
    {TLS_PROTOCOL_TLS1_2 | TLS_PROTOCOL_TLS1_2 >> 1, TLS1_2_VERSION, SSL_OP_NO_TLSv1_2},
    {TLS_PROTOCOL_TLS1_3 | TLS_PROTOCOL_TLS1_3 >> 1, TLS1_3_VERSION, SSL_OP_NO_TLSv1_3},
};

/// A mask that names none that is left in the world is an algorithm mismatch.
uint32_t EnableProtocols(SSL_CTX& context, uint32_t dwMask)
{
    if (dwMask == 0)
        return SEC_E_OK;
    int iLowest = 0;
    uint64_t dwDisabled = 0;
    for (const SProtocol& protocol : PROTOCOLS) {
        if ((dwMask & protocol.dwBits) == 0)
            dwDisabled |= protocol.dwDisable;
        else if (iLowest == 0)
            iLowest = protocol.iVersion;
    }
    if (iLowest == 0)
        return SEC_E_ALGORITHM_MISMATCH;
    SSL_CTX_set_min_proto_version(&context, iLowest);
    SSL_CTX_set_max_proto_version(&context, TLS1_3_VERSION);
    SSL_CTX_set_options(&context, dwDisabled);
    // TLS 1.0 and 1.1 sign with SHA-1 and MD5, which OpenSSL 3 refuses unless it is told that this is wanted.
    const bool bOld = iLowest < TLS1_2_VERSION;
    if (bOld && SSL_CTX_set_cipher_list(&context, "DEFAULT@SECLEVEL=0") != 1)
        return StatusOfSslError();
    return SEC_E_OK;
}

/// A key that needs a passphrase cannot be used: nobody is there to be asked.
int NoPassphrase(char*, int, int, void*) { return -1; }

uint32_t UseCertificate(SSL_CTX& context, const STlsCertificateData& data)
{
    const CBioPtr pFile(BIO_new_file(data.strKeyFile.c_str(), "r"));
    const CKeyPtr pKey(pFile == nullptr ? nullptr
                                        : PEM_read_bio_PrivateKey(pFile.get(), nullptr, &NoPassphrase, nullptr));
    bool bUsable = pKey != nullptr && SSL_CTX_use_certificate(&context, data.pCertificate.get()) == 1 &&
                   SSL_CTX_use_PrivateKey(&context, pKey.get()) == 1;
    for (const CX509Ptr& pAbove : data.above)
        bUsable = bUsable && SSL_CTX_add1_chain_cert(&context, pAbove.get()) == 1;
    ERR_clear_error();
    return bUsable ? SEC_E_OK : SEC_E_NO_CREDENTIALS;
}

/// Clients are told the authorities whose certificates they may present.
void NameAuthorities(SSL_CTX& context, const CTlsCertificateStore& store)
{
    for (const CTlsCertificate& certificate : store.Certificates()) {
        X509* const pCertificate = certificate.Data()->pCertificate.get();
        if (X509_check_ca(pCertificate) != 0 && X509_self_signed(pCertificate, 0) == 1)
            SSL_CTX_add_client_CA(&context, pCertificate);
    }
}

/// Tickets of this process are good on all of its sockets.
void ShareTickets(SSL_CTX& context)
{
    static std::array<unsigned char, 80> keys = [] {
        std::array<unsigned char, 80> fresh{};
        RAND_bytes(fresh.data(), static_cast<int>(fresh.size()));
        return fresh;
    }();
    SSL_CTX_set_tlsext_ticket_keys(&context, keys.data(), static_cast<long>(keys.size()));
    constexpr unsigned char SCOPE[] = "tobix";
    SSL_CTX_set_session_id_context(&context, SCOPE, sizeof(SCOPE) - 1);
}

/// Whatever the peer presents is for the caller to judge.
int AcceptAny(X509_STORE_CTX* pCheck, void*)
{
    X509_STORE_CTX_set_error(pCheck, X509_V_OK);
    return 1;
}

/// Clients that present no certificate differ in their protocols only. They share their contexts, any thread: making
/// one costs more than a resumed handshake.
class CClientContexts
{
public:
    static CClientContexts& Instance()
    {
        static CImmortal<CClientContexts> contexts; // OpenSSL takes itself down before static objects
        return *contexts;
    }
    std::shared_ptr<STlsCredentialState> Find(uint32_t dwProtocols)
    {
        const std::lock_guard lock(m_mutex);
        const auto it = m_states.find(dwProtocols);
        return it == m_states.end() ? nullptr : it->second;
    }
    void Keep(uint32_t dwProtocols, const std::shared_ptr<STlsCredentialState>& pState)
    {
        const std::lock_guard lock(m_mutex);
        m_states.insert_or_assign(dwProtocols, pState);
    }

private:
    std::mutex m_mutex;
    std::map<uint32_t, std::shared_ptr<STlsCredentialState>> m_states; ///< by the protocols: few
};

} // namespace

uint32_t CTlsCredentials::Acquire(ETlsEnd end, const STlsCredentialSettings& settings)
{
    const bool bShared = end == ETlsEnd::Client && settings.certificate.Data() == nullptr &&
                         settings.dwVersion == STlsCredentialSettings::VERSION;
    m_pState = bShared ? CClientContexts::Instance().Find(settings.dwProtocols) : nullptr;
    if (m_pState != nullptr)
        return SEC_E_OK;
    const uint32_t dwStatus = Make(end, settings);
    if (bShared && dwStatus == SEC_E_OK)
        CClientContexts::Instance().Keep(settings.dwProtocols, m_pState);
    return dwStatus;
}

uint32_t CTlsCredentials::Make(ETlsEnd end, const STlsCredentialSettings& settings)
{
    ERR_clear_error();
    const bool bClient = end == ETlsEnd::Client;
    auto pState = std::make_shared<STlsCredentialState>();
    pState->end = end;
    pState->pContext.reset(SSL_CTX_new(bClient ? TLS_client_method() : TLS_server_method()));
    if (settings.dwVersion != STlsCredentialSettings::VERSION || pState->pContext == nullptr)
        return SEC_E_INTERNAL_ERROR;
    SSL_CTX& context = *pState->pContext;
    SSL_CTX_set_mode(&context, SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_cert_verify_callback(&context, &AcceptAny, nullptr);
    uint32_t dwStatus = EnableProtocols(context, settings.dwProtocols);
    const STlsCertificateData* const pCertificate = settings.certificate.Data();
    if (dwStatus == SEC_E_OK && pCertificate != nullptr)
        dwStatus = UseCertificate(context, *pCertificate);
    if (dwStatus == SEC_E_OK && pCertificate == nullptr && !bClient)
        dwStatus = SEC_E_NO_CREDENTIALS;
    if (dwStatus != SEC_E_OK)
        return dwStatus;
    if (bClient) {
        KeepSessionsOf(context);
        pState->strSessionScope = std::to_string(settings.dwProtocols) + " ";
        if (pCertificate != nullptr)
            pState->strSessionScope += Fingerprint(*pCertificate->pCertificate);
    } else {
        ShareTickets(context);
        if (settings.pRootStore != nullptr)
            NameAuthorities(context, *settings.pRootStore);
    }
    m_pState = std::move(pState);
    return SEC_E_OK;
}

} // namespace Platform
