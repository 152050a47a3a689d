#pragma once

#include <string>

/// Who this machine is, and one-shot datagrams. Thread-safe.
namespace Platform {

bool HostName(std::string& strName); ///< false: LastError

struct SCanonicalHost
{
    std::string strName;    ///< canonical name; may be empty
    std::string strAddress; ///< dotted IPv4 address
};
bool ResolveCanonicalIPv4(const char* pszName, SCanonicalHost& host);

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

std::string EnvironmentVariable(const char* pszName, bool& bPresent);

} // namespace Platform
