#pragma once

#include <arpa/inet.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

inline sockaddr_in Loopback(uint16_t wPort)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(wPort);
    return address;
}

/// Prints the port. Ends the program when there is none.
inline int ListenOnLoopback(int iBacklog)
{
    sockaddr_in address = Loopback(0);
    socklen_t nLength = sizeof(address);
    auto* const pAddress = reinterpret_cast<sockaddr*>(&address);
    const int iSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(iSocket, pAddress, nLength) != 0 || listen(iSocket, iBacklog) != 0 ||
        getsockname(iSocket, pAddress, &nLength) != 0)
        std::exit(1);
    std::printf("%d\n", ntohs(address.sin_port));
    return iSocket;
}

/// One end of an SMTP connection, blocking and with nothing that a mail could do without; under TLS once it was asked
/// to.
///
/// Owns the socket. Every operation answers false when the connection is over.
class CWire
{
public:
    explicit CWire(int iSocket) : m_iSocket(iSocket)
    {
        const int iOn = 1;
        setsockopt(m_iSocket, IPPROTO_TCP, TCP_NODELAY, &iOn, sizeof(iOn));
    }
    ~CWire()
    {
        if (m_pTls != nullptr)
            SSL_shutdown(m_pTls);
        SSL_free(m_pTls);
        close(m_iSocket);
    }
    CWire(const CWire&) = delete;
    CWire& operator=(const CWire&) = delete;

    bool Accept(SSL_CTX* pContext)
    {
        Prepare(pContext);
        return SSL_accept(m_pTls) == 1;
    }
    bool Handshake(SSL_CTX* pContext, SSL_SESSION* pSession)
    {
        Prepare(pContext);
        if (pSession != nullptr)
            SSL_set_session(m_pTls, pSession);
        return SSL_connect(m_pTls) == 1;
    }
    bool Send(std::string_view text)
    {
        while (!text.empty()) {
            const auto nSent = m_pTls != nullptr ? SSL_write(m_pTls, text.data(), static_cast<int>(text.size()))
                                                 : send(m_iSocket, text.data(), text.size(), MSG_NOSIGNAL);
            if (nSent <= 0)
                return false;
            text.remove_prefix(static_cast<size_t>(nSent));
        }
        return true;
    }
    bool ReadLine(std::string& strLine) ///< without its end
    {
        size_t nEnd = 0;
        while ((nEnd = m_strRead.find("\r\n")) == std::string::npos) {
            if (!ReadSome())
                return false;
        }
        strLine.assign(m_strRead, 0, nEnd);
        m_strRead.erase(0, nEnd + 2);
        return true;
    }
    bool SkipPayload() ///< up to the line that holds a single dot
    {
        constexpr std::string_view END = "\r\n.\r\n";
        size_t nEnd = 0;
        while ((nEnd = m_strRead.find(END)) == std::string::npos) {
            if (m_strRead.size() >= END.size())
                m_strRead.erase(0, m_strRead.size() - END.size() + 1);
            if (!ReadSome())
                return false;
        }
        m_strRead.erase(0, nEnd + END.size());
        return true;
    }
    bool ReadReply(int iExpected) ///< all of its lines
    {
        std::string strLine;
        do {
            if (!ReadLine(strLine))
                return false;
        } while (strLine.size() > 3 && strLine[3] == '-');
        return std::atoi(strLine.c_str()) == iExpected;
    }
    SSL* Tls() const { return m_pTls; }

private:
    void Prepare(SSL_CTX* pContext)
    {
        m_strRead.clear();
        m_pTls = SSL_new(pContext);
        SSL_set_fd(m_pTls, m_iSocket);
    }
    bool ReadSome()
    {
        const auto nRead = m_pTls != nullptr ? SSL_read(m_pTls, m_buffer, sizeof(m_buffer))
                                             : recv(m_iSocket, m_buffer, sizeof(m_buffer), 0);
        if (nRead <= 0)
            return false;
        m_strRead.append(m_buffer, static_cast<size_t>(nRead));
        return true;
    }

    int m_iSocket;
    SSL* m_pTls = nullptr;
    std::string m_strRead;
    char m_buffer[65536];
};
