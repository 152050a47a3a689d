#include "Platform/Host.h"

#include "Platform/Errors.h"
#include "Platform/linux/base/CDescriptor.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace Platform {

namespace {

struct SAddressListDeleter
{
    void operator()(addrinfo* pList) const { freeaddrinfo(pList); }
};
using CAddressList = std::unique_ptr<addrinfo, SAddressListDeleter>;

SError ErrorFromLookup(int iLookupError)
{
    constexpr uint32_t HOST_NOT_FOUND_CODE = 11001;
    constexpr uint32_t TRY_AGAIN_CODE = 11002;
    constexpr uint32_t NO_RECOVERY_CODE = 11003;
    switch (iLookupError) {
    case EAI_SYSTEM:
        return ErrorFromErrno(errno);
    case EAI_MEMORY:
        return {LIB_NO_MEMORY, SYS_NO_MEMORY};
    case EAI_AGAIN:
        return {LIB_OTHER, TRY_AGAIN_CODE};
    case EAI_FAIL:
        return {LIB_OTHER, NO_RECOVERY_CODE};
    default:
        return {LIB_NO_ENTRY, HOST_NOT_FOUND_CODE};
    }
}

CAddressList LookUpIPv4(const char* pszName, int iFlags)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM; // one entry for each address
    hints.ai_flags = iFlags;
    addrinfo* pList = nullptr;
    const int iLookupError = getaddrinfo(pszName, nullptr, &hints, &pList);
    if (iLookupError == 0)
        return CAddressList(pList);
    SetLastError(ErrorFromLookup(iLookupError));
    return nullptr;
}

in_addr AddressOf(const addrinfo& entry)
{
    sockaddr_in address{};
    std::memcpy(&address, entry.ai_addr, sizeof(address));
    return address.sin_addr;
}

bool FindAddress(const char* pszHost, in_addr& address)
{
    if (inet_pton(AF_INET, pszHost, &address) == 1)
        return true;
    const CAddressList pList = LookUpIPv4(pszHost, 0);
    if (!pList)
        return false;
    address = AddressOf(*pList);
    return true;
}

bool FailWithErrno()
{
    SetLastError(ErrorFromErrno(errno));
    return false;
}

int OpenDatagramSocket() { return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); }

bool SendThrough(int iSocket, const char* pszHost, unsigned short wPort, const void* pData, size_t nLength)
{
    sockaddr_in receiver{};
    receiver.sin_family = AF_INET;
    receiver.sin_port = htons(wPort);
    if (!FindAddress(pszHost, receiver.sin_addr))
        return false;
    const ssize_t nSent =
        sendto(iSocket, pData, nLength, MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&receiver), sizeof(receiver));
    return nSent >= 0 || FailWithErrno();
}

} // namespace

bool HostName(std::string& strName)
{
    std::array<char, HOST_NAME_MAX + 1> name{};
    if (gethostname(name.data(), name.size()) != 0)
        return FailWithErrno();
    strName = name.data();
    return true;
}

bool ResolveCanonicalIPv4(const char* pszName, SCanonicalHost& host)
{
    const CAddressList pList = LookUpIPv4(pszName, AI_CANONNAME);
    if (!pList)
        return false;
    std::array<char, INET_ADDRSTRLEN> address{};
    const in_addr first = AddressOf(*pList);
    inet_ntop(AF_INET, &first, address.data(), address.size());
    host.strName = pList->ai_canonname != nullptr ? pList->ai_canonname : "";
    host.strAddress = address.data();
    return true;
}

CDatagramSocket::CDatagramSocket() : m_iDescriptor(OpenDatagramSocket()) {}

CDatagramSocket::~CDatagramSocket()
{
    if (m_iDescriptor >= 0)
        close(m_iDescriptor);
}

bool CDatagramSocket::Send(const char* pszHost, unsigned short wPort, const void* pData, size_t nLength) const
{
    return m_iDescriptor < 0 ? SendDatagram(pszHost, wPort, pData, nLength)
                             : SendThrough(m_iDescriptor, pszHost, wPort, pData, nLength);
}

bool SendDatagram(const char* pszHost, unsigned short wPort, const void* pData, size_t nLength)
{
    const CDescriptor socket(OpenDatagramSocket());
    return socket.IsValid() ? SendThrough(socket.Get(), pszHost, wPort, pData, nLength) : FailWithErrno();
}

std::string EnvironmentVariable(const char* pszName, bool& bPresent)
{
    const char* const pszValue = std::getenv(pszName);
    bPresent = pszValue != nullptr;
    return bPresent ? pszValue : "";
}

} // namespace Platform
