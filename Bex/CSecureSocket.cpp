#include "Bex/CSecureSocket.h"

#include "Bex/CException.h"
#include "Bex/COutOfMemoryException.h"
#include "Bex/CSecurityException.h"
#include "Bex/CSocketException.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Platform/HostLookup.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

using namespace Platform;

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CSecureSocket";

constexpr uint32_t MOST_RECEIVE_PASSES = 999;

struct SProtocolName
{
    const char* pszName;
    uint32_t dwBit;
};
constexpr SProtocolName PROTOCOL_NAMES[] = {
    {"SSL2", TLS_PROTOCOL_SSL2},     {"SSL3", TLS_PROTOCOL_SSL3},     {"TLS1_0", TLS_PROTOCOL_TLS1_0},
    {"TLS1_1", TLS_PROTOCOL_TLS1_1}, {"TLS1_2", TLS_PROTOCOL_TLS1_2}, {"TLS1_3", TLS_PROTOCOL_TLS1_3},
};

} // namespace

uint32_t CSecureSocket::ParseCipherProtocols(const CSimpleString& strNames)
{
    uint32_t dwMask = 0;
    CList<CSimpleString> names;
    Tokenize(strNames, ",", names, false);
    for (const CSimpleString& strName : names) {
        for (const SProtocolName& protocol : PROTOCOL_NAMES) {
            if (strName.EqualsNoCase(protocol.pszName))
                dwMask |= protocol.dwBit;
        }
    }
    return dwMask;
}

void CSecureSocket::SReceived::Grow(size_t nCapacity)
try {
    if (bytes.size() < nCapacity)
        bytes.resize(nCapacity);
} catch (const std::bad_alloc&) {
    ThrowOutOfMemoryException(SOURCE_FILE, __LINE__);
}

/// Moves the bytes that were left over, if any, to the front; nothing else stays.
void CSecureSocket::SReceived::Keep(const STlsBuffer& extra)
{
    nUsed = extra.type == ETlsBuffer::Extra ? extra.nLength : 0;
    if (nUsed > 0)
        std::memmove(bytes.data(), extra.pData, nUsed);
}

CSecureSocket::CSecureSocket() = default;

CSecureSocket::~CSecureSocket()
{
    try {
        CSecureSocket::Close();
    } catch (const CException&) {
        // Nobody is left to be told; the handle is closed all the same.
    }
    m_store.Close();
}

void CSecureSocket::Close()
{
    TryShutdownTls();
    Forget();
    CSocket::Close();
}

/// Nothing of an earlier connection reaches into the next.
void CSecureSocket::Forget()
{
    m_bEstablished = false;
    m_context.Delete();
    m_credentials.Free();
    m_settings = {};
    m_localCertificate = {};
    m_pending = {};
    m_nPendingTaken = 0;
    m_received = {};
}

bool CSecureSocket::Shutdown(int iHow) noexcept
{
    TryShutdownTls();
    return CSocket::Shutdown(iHow);
}

void CSecureSocket::Connect(const SSocketAddress& address)
{
    std::string strName;
    if (m_bSecure && !LookupName(address, strName))
        ThrowSocketException(SOURCE_FILE, __LINE__, SOCKET_HOST_NOT_FOUND);
    CSecureSocket::Connect(address, std::string_view(strName));
}

void CSecureSocket::Connect(const CSimpleString& strHost, uint16_t wPort)
{
    CSecureSocket::Connect(strHost, wPort, strHost); // not what a derived socket makes of it: that may call us
}

void CSecureSocket::Connect(const SSocketAddress& address, const CSimpleString& strTargetName)
{
    Forget();
    CSocket::Connect(address);
    if (m_bSecure)
        Negotiate(strTargetName);
}

void CSecureSocket::Connect(const CSimpleString& strHost, uint16_t wPort, const CSimpleString& strTargetName)
{
    Forget();
    CSocket::Connect(strHost, wPort);
    if (m_bSecure)
        Negotiate(strTargetName);
}

void CSecureSocket::Listen(int iBacklog)
{
    m_bServer = true;
    m_bCheckCertificate = false;
    CSocket::Listen(iBacklog);
}

void CSecureSocket::Accept(CSecureSocket& accepted, SSocketAddress& peer)
{
    CSocket::Accept(accepted, peer);
    accepted.m_bSecure = m_bSecure;
    accepted.m_bServer = m_bServer;
    accepted.m_strCertificateName = m_strCertificateName;
    accepted.m_bMachineStore = m_bMachineStore;
    accepted.m_dwProtocols = m_dwProtocols;
    accepted.m_bCheckCertificate = m_bCheckCertificate;
    accepted.Start();
}

void CSecureSocket::Accept(CSecureSocket& accepted, CSocketEndPoint& peer)
{
    SSocketAddress address;
    Accept(accepted, address);
    peer = CSocketEndPoint(address);
}

void CSecureSocket::Start()
{
    if (m_bSecure)
        Negotiate({});
}

STlsStreamSizes CSecureSocket::StreamSizes() const
{
    STlsStreamSizes sizes{};
    const uint32_t dwStatus = m_context.QueryStreamSizes(sizes);
    if (IsFailure(dwStatus))
        ThrowSecurityException(SOURCE_FILE, __LINE__, dwStatus);
    return sizes;
}

/// Appends what the connection has to the receive buffer. 0: the peer closed it.
uint32_t CSecureSocket::ReadMore()
{
    const size_t nFree = m_received.bytes.size() - m_received.nUsed;
    const uint32_t nRead =
        CSocket::Receive(m_received.bytes.data() + m_received.nUsed, static_cast<uint32_t>(nFree), 0);
    m_received.nUsed += nRead;
    return nRead;
}

uint32_t CSecureSocket::TakePending(void* pBuffer, uint32_t nLength)
{
    const size_t nTaken = std::min<size_t>(nLength, m_pending.size() - m_nPendingTaken);
    if (nTaken > 0)
        std::memcpy(pBuffer, m_pending.data() + m_nPendingTaken, nTaken);
    m_nPendingTaken += nTaken;
    if (m_nPendingTaken == m_pending.size()) {
        m_pending.clear();
        m_nPendingTaken = 0;
    }
    return static_cast<uint32_t>(nTaken);
}

bool CSecureSocket::HasInput()
{
    return !m_pending.empty() || m_received.nUsed > 0 || m_handle.WaitReadable(0) != ESocketWait::TimedOut;
}

uint32_t CSecureSocket::Receive(void* pBuffer, uint32_t nLength, int iFlags)
{
    if (!m_bSecure || nLength == 0)
        return CSocket::Receive(pBuffer, nLength, iFlags);
    if (m_pending.empty())
        DecryptSome();
    return TakePending(pBuffer, nLength);
}

/// Fills m_pending; leaves it empty when the connection or its TLS ended.
void CSecureSocket::DecryptSome()
{
    const STlsStreamSizes sizes = StreamSizes();
    m_received.Grow(size_t{sizes.dwHeader} + sizes.dwMaximumMessage + sizes.dwTrailer);
    uint32_t dwStatus = SEC_E_OK;
    for (uint32_t nPass = 1; m_pending.empty(); ++nPass) {
        if (nPass > MOST_RECEIVE_PASSES) {
            LogError(MainLog(), "CSecureSocket::Receive had too many loops");
            return;
        }
        const bool bMore = m_received.nUsed == 0 || dwStatus == SEC_E_INCOMPLETE_MESSAGE;
        if (bMore && ReadMore() == 0)
            return;
        if (!DecryptRecord(dwStatus))
            return;
    }
}

/// One record of the receive buffer. False: the peer's close notification.
bool CSecureSocket::DecryptRecord(uint32_t& dwStatus)
{
    STlsBuffer buffers[4] = {{ETlsBuffer::Data, m_received.bytes.data(), m_received.nUsed}, {}, {}, {}};
    dwStatus = m_context.Decrypt(buffers);
    if (dwStatus == SEC_I_CONTEXT_EXPIRED || dwStatus == SEC_E_INCOMPLETE_MESSAGE)
        return dwStatus == SEC_E_INCOMPLETE_MESSAGE;
    if (IsFailure(dwStatus))
        ThrowSecurityException(SOURCE_FILE, __LINE__, dwStatus);
    STlsBuffer data;
    STlsBuffer extra;
    for (const STlsBuffer& buffer : buffers) {
        STlsBuffer* const pFound = buffer.type == ETlsBuffer::Data    ? &data
                                   : buffer.type == ETlsBuffer::Extra ? &extra
                                                                      : nullptr;
        if (pFound != nullptr && pFound->type != ETlsBuffer::Empty)
            ThrowSecurityException(SOURCE_FILE, __LINE__, SEC_E_INTERNAL_ERROR);
        if (pFound != nullptr)
            *pFound = buffer;
    }
    try {
        if (data.type == ETlsBuffer::Data)
            m_pending.insert(m_pending.end(), data.pData, data.pData + data.nLength);
    } catch (const std::bad_alloc&) {
        ThrowOutOfMemoryException(SOURCE_FILE, __LINE__);
    }
    m_received.Keep(extra);
    if (dwStatus == SEC_I_RENEGOTIATE)
        Renegotiate();
    return true;
}

uint32_t CSecureSocket::Send(const void* pBuffer, uint32_t nLength, int iFlags)
{
    if (!m_bSecure)
        return CSocket::Send(pBuffer, nLength, iFlags);
    const STlsStreamSizes sizes = StreamSizes();
    const size_t nCapacity = size_t{sizes.dwHeader} + sizes.dwMaximumMessage + sizes.dwTrailer;
    const std::unique_ptr<uint8_t[]> pRecord(new (std::nothrow) uint8_t[nCapacity]);
    if (pRecord == nullptr)
        ThrowOutOfMemoryException(SOURCE_FILE, __LINE__);
    const auto* const pBytes = static_cast<const uint8_t*>(pBuffer);
    uint64_t nSent = 0;
    for (uint32_t nDone = 0; nDone < nLength;) {
        const uint32_t nChunk = std::min(nLength - nDone, sizes.dwMaximumMessage);
        uint8_t* const pData = pRecord.get() + sizes.dwHeader;
        std::memcpy(pData, pBytes + nDone, nChunk);
        STlsBuffer buffers[4] = {{ETlsBuffer::StreamHeader, pRecord.get(), sizes.dwHeader},
                                 {ETlsBuffer::Data, pData, nChunk},
                                 {ETlsBuffer::StreamTrailer, pData + nChunk, sizes.dwTrailer},
                                 {}};
        const uint32_t dwStatus = m_context.Encrypt(buffers);
        if (IsFailure(dwStatus))
            ThrowSecurityException(SOURCE_FILE, __LINE__, dwStatus);
        const size_t nRecord = buffers[0].nLength + buffers[1].nLength + buffers[2].nLength;
        nSent += CSocket::Send(pRecord.get(), static_cast<uint32_t>(nRecord), iFlags);
        nDone += nChunk;
    }
    return static_cast<uint32_t>(std::min<uint64_t>(nSent, nLength));
}

/// Tells the peer that nothing follows (RFC 8446 6.1).
void CSecureSocket::ShutdownTls()
{
    uint32_t dwStatus = m_context.ApplyShutdown();
    STlsBuffer input[2];
    STlsToken token;
    if (!IsFailure(dwStatus))
        dwStatus = m_context.Step(m_credentials, {}, 0, input, token);
    m_context.Delete();
    if (IsFailure(dwStatus))
        ThrowSecurityException(SOURCE_FILE, __LINE__, dwStatus);
    if (token.bytes.empty())
        return;
    m_bEstablished = false;
    CSocket::Send(token.bytes.data(), static_cast<uint32_t>(token.bytes.size()), 0);
}

/// A close notification that cannot be sent does not stop the close.
void CSecureSocket::TryShutdownTls() noexcept
{
    if (!m_bSecure || !m_bEstablished)
        return;
    try {
        ShutdownTls();
    } catch (const std::exception&) {
    } catch (const CException&) {
    }
}

} // namespace Bex
