#include "Bex/CSocketException.h"

#include "Bex/SCodeText.h"

namespace Bex {

namespace {

constexpr SCodeText SOCKET_TEXTS[] = {
    {Platform::SOCKET_NO_MEMORY, "a memory allocation failure occurred"},
    {Platform::SOCKET_CANCELED, "the (blocking) call was canceled using WSACancelBlockingCall"},
    {Platform::SOCKET_BAD_DESCRIPTOR, "the descriptor is not a socket"},
    {Platform::SOCKET_NO_ACCESS, "the requested address is a broadcast address, but the appropriate flag was not set"},
    {Platform::SOCKET_BAD_ADDRESS,
     "the buf argument is not in a valid part of the user address space or the nSockAddrLen argument is incorrect"},
    {Platform::SOCKET_INVALID, "the socket has not been bound to an address"},
    {Platform::SOCKET_TOO_MANY_OPEN, "no more file descriptors are available"},
    {Platform::SOCKET_WOULD_BLOCK, "the socket is marked as nonblocking and the requested operation would block"},
    {Platform::SOCKET_IN_PROGRESS, "a blocking Windows Sockets call is in progress"},
    {Platform::SOCKET_NOT_A_SOCKET, "the descriptor is not a socket"},
    {Platform::SOCKET_NO_DESTINATION, "a destination address is required"},
    {Platform::SOCKET_MESSAGE_TOO_LONG,
     "the datagram is larger than the maximum supported by the Windows Sockets implementation"},
    {Platform::SOCKET_WRONG_PROTOCOL, "the specified port is the wrong type for this socket"},
    {Platform::SOCKET_NO_SUCH_PROTOCOL, "the specified port is not supported"},
    {Platform::SOCKET_NO_SUCH_TYPE, "the specified socket type is not supported in this address family"},
    {Platform::SOCKET_NOT_SUPPORTED, "MSG_OOB was specified, but the socket is not of type SOCK_STREAM"},
    {Platform::SOCKET_NO_SUCH_PROTOCOL_FAMILY, "protocol in the specified family cannot be used with this socket"},
    {Platform::SOCKET_NO_SUCH_FAMILY, "addresses in the specified family cannot be used with this socket"},
    {Platform::SOCKET_ADDRESS_IN_USE, "the specified address is already in use"},
    {Platform::SOCKET_NO_SUCH_ADDRESS, "the specified address is not available from the local machine"},
    {Platform::SOCKET_NETWORK_DOWN, "the network subsystem failed or has been blocked"},
    {Platform::SOCKET_NETWORK_UNREACHABLE, "the network cannot be reached from this host at this time"},
    {Platform::SOCKET_NETWORK_RESET,
     "the connection must be reset because the Windows Sockets implementation dropped it"},
    {Platform::SOCKET_ABORTED, "the connection was aborted due to timeout or other failure"},
    {Platform::SOCKET_RESET, "the connection was reset by the remote side"},
    {Platform::SOCKET_NO_BUFFERS, "the Windows Sockets implementation reports a buffer deadlock"},
    {Platform::SOCKET_CONNECTED, "the socket is already connected"},
    {Platform::SOCKET_NOT_CONNECTED, "the socket is not connected"},
    {Platform::SOCKET_SHUT_DOWN, "the socket has been shut down"},
    {Platform::SOCKET_TIMED_OUT, "the attempt to connect timed out without establishing a connection"},
    {Platform::SOCKET_REFUSED, "the attempt to connect was rejected"},
    {Platform::SOCKET_HOST_UNREACHABLE, "the host cannot be reached from this host at this time"},
    {Platform::SOCKET_SYSTEM_NOT_READY, "the network subsystem is unusable"},
    {Platform::SOCKET_VERSION_NOT_SUPPORTED, "the Windows Sockets DLL does not support this application"},
    {Platform::SOCKET_NOT_INITIALISED, "the winsock API has not been initialised correctly"},
    {Platform::SOCKET_CLOSING, "the socket is being shut down"},
    {Platform::SOCKET_NO_SUCH_SERVICE, "the service was not found or is not supported by the specified socket type"},
    {Platform::SOCKET_HOST_NOT_FOUND, "the host was not found"},
    {Platform::SOCKET_TRY_AGAIN, "a temporary failure in name resolution occurred"},
    {Platform::SOCKET_NO_RECOVERY, "a nonrecoverable failure in name resolution occurred"},
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
