#include "Bex/CSocket.h"

#include "Bex/CSocketException.h"
#include "Platform/HostLookup.h"

#include <cstring>

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CSocket";

constexpr uint32_t LONGEST_TRANSFER = 0x7FFFFFFFu;

[[noreturn]] void ThrowLast(int iLine) { ThrowSocketException(SOURCE_FILE, iLine, Platform::LastSocketError()); }

/// The first address of a literal or a name.
Platform::SSocketAddress AddressOf(int iFamily, const CSimpleString& strHost, const Platform::CWaitLimit& limit)
{
    if (iFamily != Platform::FAMILY_IPV4 && iFamily != Platform::FAMILY_IPV6)
        ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_NO_SUCH_FAMILY);
    Platform::SSocketAddress address;
    if (Platform::ParseAddress(iFamily, strHost.Text(), address))
        return address;
    std::vector<Platform::SSocketAddress> addresses;
    const bool bFound = Platform::LookupHost(iFamily, strHost.Text(), addresses, nullptr, limit);
    if (!bFound && iFamily == Platform::FAMILY_IPV6)
        ThrowLast(__LINE__);
    if (!bFound || addresses.empty())
        ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_HOST_NOT_FOUND);
    return addresses.front();
}

} // namespace

CSocket::~CSocket() = default;

void CSocket::Create(int iFamily)
{
    if (!m_handle.Create(iFamily))
        ThrowLast(__LINE__);
    m_iFamily = iFamily;
}

void CSocket::Accept(CSocket& accepted, Platform::SSocketAddress& peer)
{
    if (!m_handle.Accept(accepted.m_handle, peer))
        ThrowLast(__LINE__);
    if (m_bConditionalAccept && AcceptCondition(peer) != 0) {
        accepted.m_handle.Close();
        ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_REFUSED);
    }
    accepted.m_iFamily = m_iFamily;
}

void CSocket::Accept(CSocket& accepted, CSocketEndPoint& peer)
{
    Platform::SSocketAddress address;
    Accept(accepted, address);
    peer = CSocketEndPoint(address);
}

void CSocket::SetLimit(const Platform::CWaitLimit& limit)
{
    m_limit = limit;
    m_handle.SetLimit(limit);
}

int CSocket::AcceptCondition(const Platform::SSocketAddress&) { return 0; }

void CSocket::Close()
{
    if (!m_handle.Close())
        ThrowLast(__LINE__);
}

void CSocket::Connect(const Platform::SSocketAddress& address)
{
    if (!m_handle.Connect(address, m_dwTimeout))
        ThrowLast(__LINE__);
}

void CSocket::Connect(const CSimpleString& strHost, uint16_t wPort)
{
    Platform::SSocketAddress address = AddressOf(m_iFamily, strHost, m_limit);
    address.wPort = wPort;
    CSocket::Connect(address); // a derived socket adds its own steps once
}

void CSocket::Bind(const CSimpleString& strLocalAddress)
{
    Platform::SSocketAddress address;
    address.iFamily = m_iFamily;
    if (!strLocalAddress.IsEmpty())
        address = AddressOf(m_iFamily, strLocalAddress, m_limit);
    if (!m_handle.Bind(address))
        ThrowLast(__LINE__);
}

void CSocket::Listen(int iBacklog)
{
    if (!m_handle.Listen(iBacklog))
        ThrowLast(__LINE__);
}

uint32_t CSocket::Receive(void* pBuffer, uint32_t nLength, int)
{
    if (nLength == 0)
        return 0;
    if (nLength > LONGEST_TRANSFER)
        ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_BAD_ARGUMENT);
    while (m_handle.IsOpen()) {
        const Platform::ESocketWait wait = m_handle.WaitReadable(m_dwTimeout);
        if (wait == Platform::ESocketWait::Failed)
            ThrowLast(__LINE__);
        if (wait == Platform::ESocketWait::TimedOut)
            break;
        const int64_t nReceived = m_handle.Receive(pBuffer, nLength);
        if (nReceived >= 0)
            return static_cast<uint32_t>(nReceived);
        if (Platform::LastSocketError() != Platform::SOCKET_WOULD_BLOCK) // else the data that woke us was dropped again
            ThrowLast(__LINE__);
    }
    ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_ABORTED);
}

bool CSocket::Shutdown(int) noexcept { return m_handle.ShutdownSending(); }

uint32_t CSocket::Send(const char* pszText)
{
    const size_t nLength = strlen(pszText);
    if (nLength > LONGEST_TRANSFER)
        ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_BAD_ARGUMENT);
    return Send(pszText, static_cast<uint32_t>(nLength), 0);
}

uint32_t CSocket::Send(const void* pBuffer, uint32_t nLength, int)
{
    if (nLength > LONGEST_TRANSFER)
        ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_BAD_ARGUMENT);
    if (!m_handle.IsOpen())
        ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_ABORTED);
    if (m_handle.Send(pBuffer, nLength, m_dwTimeout) < 0)
        ThrowLast(__LINE__);
    return nLength;
}

CSocketEndPoint CSocket::LocalEndPoint() const
{
    Platform::SSocketAddress address;
    if (!m_handle.LocalAddress(address))
        ThrowLast(__LINE__);
    return CSocketEndPoint(address);
}

CSocketEndPoint CSocket::PeerEndPoint() const
{
    Platform::SSocketAddress address;
    if (!m_handle.PeerAddress(address))
        ThrowLast(__LINE__);
    return CSocketEndPoint(address);
}

} // namespace Bex
