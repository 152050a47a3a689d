#include "Bex/CSecureSocket.h"

#include "Bex/CCertificateException.h"
#include "Bex/CSecurityException.h"
#include "Bex/Log.h"

using namespace Platform;

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CSecureSocket";

constexpr size_t HANDSHAKE_BUFFER = 65536;

bool IsUnfinished(uint32_t dwStatus)
{
    return dwStatus == SEC_I_CONTINUE_NEEDED || dwStatus == SEC_E_INCOMPLETE_MESSAGE ||
           dwStatus == SEC_I_INCOMPLETE_CREDENTIALS;
}

} // namespace

bool CSecureSocket::Negotiate(const CSimpleString& strTargetName)
{
    Forget();
    if (m_bServer) {
        CreateCredentials();
        ServerHandshake();
        AcceptPeer({});
    } else {
        ClientHandshake(strTargetName);
    }
    m_bSecure = true;
    m_bEstablished = true;
    return true;
}

void CSecureSocket::ClientHandshake(const CSimpleString& strTargetName)
{
    CreateCredentials();
    m_strTargetName = strTargetName;
    STlsBuffer input[2];
    STlsToken token;
    const uint32_t dwStatus = m_context.Step(m_credentials, std::string(strTargetName.View()), 0, input, token);
    try {
        if (dwStatus != SEC_I_CONTINUE_NEEDED)
            ThrowSecurityException(SOURCE_FILE, __LINE__, dwStatus);
        SendToken(token, SEC_E_INTERNAL_ERROR);
    } catch (...) {
        m_context.Delete();
        throw;
    }
    HandshakeLoop(true);
    AcceptPeer(strTargetName);
}

void CSecureSocket::ServerHandshake() { HandshakeLoop(true); }

/// The peer, or the connection by itself, wants a word between the records. After a handshake the certificate may be
/// another one.
void CSecureSocket::Renegotiate()
{
    const bool bHandshake = m_context.IsHandshaking();
    HandshakeLoop(false);
    if (bHandshake)
        AcceptPeer(m_strTargetName);
}

void CSecureSocket::AcceptPeer(const CSimpleString& strTargetName)
{
    if (m_bCheckCertificate)
        CheckPeer(strTargetName);
    m_context.AcceptPeer();
}

/// Steps until the handshake is done; bytes left in the receive buffer belong to the first record. Whatever fails
/// takes the context with it.
void CSecureSocket::HandshakeLoop(bool bRead)
{
    m_received.Grow(HANDSHAKE_BUFFER);
    uint32_t dwStatus = SEC_I_CONTINUE_NEEDED;
    uint32_t dwRequest = m_bServer && m_bCheckCertificate ? TLS_REQUEST_MUTUAL_AUTH : 0;
    try {
        while (dwStatus != SEC_E_OK)
            HandshakePass(dwStatus, dwRequest, bRead);
    } catch (...) {
        m_context.Delete();
        throw;
    }
}

void CSecureSocket::HandshakePass(uint32_t& dwStatus, uint32_t& dwRequest, bool& bRead)
{
    const bool bMore = m_received.nUsed == 0 || dwStatus == SEC_E_INCOMPLETE_MESSAGE;
    if (bRead && bMore && ReadMore() == 0)
        ThrowSecurityException(SOURCE_FILE, __LINE__, m_bServer ? SEC_E_INCOMPLETE_MESSAGE : SEC_E_INTERNAL_ERROR);
    bRead = true;

    STlsBuffer input[2] = {{ETlsBuffer::Token, m_received.bytes.data(), m_received.nUsed}, {}};
    STlsToken token;
    dwStatus = m_context.Step(m_credentials, {}, dwRequest, input, token);
    if (dwStatus == SEC_E_INCOMPLETE_MESSAGE)
        return;
    if (!IsFailure(dwStatus) || token.bExtendedError)
        SendToken(token, m_bServer ? SEC_E_CONTEXT_EXPIRED : SEC_E_INTERNAL_ERROR);
    if (dwStatus != SEC_E_OK && !IsUnfinished(dwStatus)) // the peer's close notification is no success
        ThrowSecurityException(SOURCE_FILE, __LINE__, dwStatus);
    m_received.Keep(input[1]);
    if (dwStatus == SEC_I_INCOMPLETE_CREDENTIALS) {
        dwRequest |= TLS_REQUEST_USE_SUPPLIED_CREDS;
        bRead = false;
    }
}

void CSecureSocket::SendToken(const STlsToken& token, uint32_t dwNothingSent)
{
    if (token.bytes.empty())
        return;
    if (CSocket::Send(token.bytes.data(), static_cast<uint32_t>(token.bytes.size()), 0) == 0)
        ThrowSecurityException(SOURCE_FILE, __LINE__, dwNothingSent);
}

void CSecureSocket::CreateCredentials()
{
    m_localCertificate = {};
    if (!m_strCertificateName.IsEmpty())
        FindLocalCertificate();
    m_settings = {};
    m_settings.certificate = m_localCertificate;
    if (!m_localCertificate.IsEmpty())
        m_settings.pRootStore = &m_store.Handle();
    m_settings.dwProtocols = m_dwProtocols;
    const uint32_t dwStatus = m_credentials.Acquire(End(), m_settings);
    if (IsFailure(dwStatus))
        ThrowSecurityException(SOURCE_FILE, __LINE__, dwStatus);
}

void CSecureSocket::FindLocalCertificate()
{
    try {
        m_store.Open(m_bServer && m_bMachineStore);
        m_localCertificate = m_store.FindCertificate(m_strCertificateName);
    } catch (const CCertificateException& exception) {
        LogError(MainLog(), "CSecureSocket::CreateCredentials: failed to get certificate %s: 0x%08X",
                 m_strCertificateName.Text(), exception.Error());
        ThrowSecurityException(SOURCE_FILE, __LINE__, SEC_E_NO_CREDENTIALS);
    }
}

} // namespace Bex
