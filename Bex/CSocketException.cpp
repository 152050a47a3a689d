#include "Bex/CSocketException.h"

#include "Bex/SCodeText.h"

namespace Bex {

namespace {

constexpr SCodeText SOCKET_TEXTS[] = {
    {8, "a memory allocation failure occurred"},
    {10004, "the (blocking) call was canceled using WSACancelBlockingCall"},
    {10009, "the descriptor is not a socket"},
    {10013, "the requested address is a broadcast address, but the appropriate flag was not set"},
    {10014,
     "the buf argument is not in a valid part of the user address space or the nSockAddrLen argument is incorrect"},
    {10022, "the socket has not been bound to an address"},
    {10024, "no more file descriptors are available"},
    {10035, "the socket is marked as nonblocking and the requested operation would block"},
    {10036, "a blocking Windows Sockets call is in progress"},
    {10038, "the descriptor is not a socket"},
    {10039, "a destination address is required"},
    {10040, "the datagram is larger than the maximum supported by the Windows Sockets implementation"},
    {10041, "the specified port is the wrong type for this socket"},
    {10043, "the specified port is not supported"},
    {10044, "the specified socket type is not supported in this address family"},
    {10045, "MSG_OOB was specified, but the socket is not of type SOCK_STREAM"},
    {10046, "protocol in the specified family cannot be used with this socket"},
    {10047, "addresses in the specified family cannot be used with this socket"},
    {10048, "the specified address is already in use"},
    {10049, "the specified address is not available from the local machine"},
    {10050, "the network subsystem failed or has been blocked"},
    {10051, "the network cannot be reached from this host at this time"},
    {10052, "the connection must be reset because the Windows Sockets implementation dropped it"},
    {10053, "the connection was aborted due to timeout or other failure"},
    {10054, "the connection was reset by the remote side"},
    {10055, "the Windows Sockets implementation reports a buffer deadlock"},
    {10056, "the socket is already connected"},
    {10057, "the socket is not connected"},
    {10058, "the socket has been shut down"},
    {10060, "the attempt to connect timed out without establishing a connection"},
    {10061, "the attempt to connect was rejected"},
    {10065, "the host cannot be reached from this host at this time"},
    {10091, "the network subsystem is unusable"},
    {10092, "the Windows Sockets DLL does not support this application"},
    {10093, "the winsock API has not been initialised correctly"},
    {10101, "the socket is being shut down"},
    {10109, "the service was not found or is not supported by the specified socket type"},
    {11001, "the host was not found"},
    {11002, "a temporary failure in name resolution occurred"},
    {11003, "a nonrecoverable failure in name resolution occurred"},
};

} // namespace

const char* CSocketException::Text() const { return TextOfCode(SOCKET_TEXTS, m_dwSocketError); }

void CSocketException::GetMessage(char* pBuffer, size_t nSize) const
{
    Render(pBuffer, nSize, "%s in file \"%s\" at line %d; system error: %u, message: %s", ClassName(), SourceFile(),
           Line(), m_dwSocketError, Text());
}

void ThrowSocketException(const char* pszSourceFile, int iLine, uint32_t dwSocketError)
{
    throw CSocketException(pszSourceFile, iLine, dwSocketError);
}

} // namespace Bex
