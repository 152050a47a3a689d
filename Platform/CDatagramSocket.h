#pragma once

#include <cstddef>

namespace Platform {

/// Sends UDP datagrams over IPv4, all through one socket. Any thread.
class CDatagramSocket
{
public:
    CDatagramSocket();
    ~CDatagramSocket();
    CDatagramSocket(const CDatagramSocket&) = delete;
    CDatagramSocket& operator=(const CDatagramSocket&) = delete;

    /// pszHost is a dotted address or a name, which is resolved anew each time. False when anything on the way failed;
    /// the datagram is then lost.
    bool Send(const char* pszHost, unsigned short wPort, const void* pData, size_t nLength) const;

private:
    int m_iDescriptor; ///< negative when there was none to be had: each datagram asks for its own then
};

/// Likewise one datagram, through a socket of its own.
bool SendDatagram(const char* pszHost, unsigned short wPort, const void* pData, size_t nLength);

} // namespace Platform
