#include "Platform/CDatagramSocket.h"

#include "Platform/HostLookup.h"
#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/net/NativeAddress.h"
#include "Platform/linux/net/SocketFailure.h"

namespace Platform {

namespace {

int OpenDatagramSocket() { return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); }

bool FindAddress(const char* pszHost, SSocketAddress& address)
{
    if (ParseAddress(FAMILY_IPV4, pszHost, address))
        return true;
    std::vector<SSocketAddress> addresses;
    if (!LookupHost(FAMILY_IPV4, pszHost, addresses) || addresses.empty())
        return false;
    address = addresses.front();
    return true;
}

bool SendThrough(int iSocket, const char* pszHost, unsigned short wPort, const void* pData, size_t nLength)
{
    SSocketAddress receiver;
    SNativeAddress native;
    if (!FindAddress(pszHost, receiver))
        return false;
    receiver.wPort = wPort;
    return ToNative(receiver, native) &&
           (sendto(iSocket, pData, nLength, MSG_NOSIGNAL, native.Get(), native.nLength) >= 0 || FailSocketWithErrno());
}

} // namespace

CDatagramSocket::CDatagramSocket() : m_iDescriptor(OpenDatagramSocket()) {}

CDatagramSocket::~CDatagramSocket() { CDescriptor(m_iDescriptor).Close(); }

bool CDatagramSocket::Send(const char* pszHost, unsigned short wPort, const void* pData, size_t nLength) const
{
    return m_iDescriptor < 0 ? SendDatagram(pszHost, wPort, pData, nLength)
                             : SendThrough(m_iDescriptor, pszHost, wPort, pData, nLength);
}

bool SendDatagram(const char* pszHost, unsigned short wPort, const void* pData, size_t nLength)
{
    const CDescriptor socket(OpenDatagramSocket());
    return socket.IsValid() ? SendThrough(socket.Get(), pszHost, wPort, pData, nLength) : FailSocketWithErrno();
}

} // namespace Platform
