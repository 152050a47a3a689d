#include "Platform/linux/tls/TlsHttp.h"

#include "Platform/CSocketHandle.h"
#include "Platform/DnsQuery.h"
#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/net/NativeAddress.h"
#include "Platform/linux/tls/TlsHandles.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <openssl/http.h>
#include <poll.h>

namespace Platform {

namespace {

constexpr size_t LARGEST_ANSWER = 16u << 20;

/// Keeps a connection that breaks from killing the process: OpenSSL writes to sockets without asking for silence.
class CPipeSignalGuard
{
public:
    CPipeSignalGuard()
    {
        sigemptyset(&m_pipe);
        sigaddset(&m_pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &m_pipe, &m_before);
    }
    ~CPipeSignalGuard()
    {
        if (sigismember(&m_before, SIGPIPE) == 1)
            return;
        const timespec noWait{};
        while (sigtimedwait(&m_pipe, nullptr, &noWait) == SIGPIPE) {
        }
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    CPipeSignalGuard(const CPipeSignalGuard&) = delete;
    CPipeSignalGuard& operator=(const CPipeSignalGuard&) = delete;

private:
    sigset_t m_pipe;
    sigset_t m_before;
};

/// Whole seconds that are left, rounded up; 0 when none are, which OpenSSL would take for "no limit".
int SecondsLeft(CHttpDeadline deadline)
{
    const auto left = deadline - std::chrono::steady_clock::now();
    return left.count() <= 0 ? 0 : static_cast<int>(std::chrono::ceil<std::chrono::seconds>(left).count());
}

bool Drain(BIO* pAnswer, std::vector<unsigned char>& answer)
{
    answer.clear();
    unsigned char buffer[16384];
    for (int iRead = 0; pAnswer != nullptr && (iRead = BIO_read(pAnswer, buffer, sizeof(buffer))) > 0;)
        answer.insert(answer.end(), buffer, buffer + iRead);
    ERR_clear_error();
    return !answer.empty();
}

struct SUrl
{
    std::string strHost;
    std::string strPort;
    std::string strPath;
    uint16_t wPort = 0;
};

bool ParseUrl(const std::string& strUrl, SUrl& url)
{
    char* pszHost = nullptr;
    char* pszPort = nullptr;
    char* pszPath = nullptr;
    int iPort = 0;
    int iSecure = 0;
    const bool bParsed = OSSL_HTTP_parse_url(strUrl.c_str(), &iSecure, nullptr, &pszHost, &pszPort, &iPort, &pszPath,
                                             nullptr, nullptr) == 1;
    if (bParsed)
        url = {pszHost, pszPort, pszPath, static_cast<uint16_t>(iPort)};
    OPENSSL_free(pszHost);
    OPENSSL_free(pszPort);
    OPENSSL_free(pszPath);
    ERR_clear_error();
    return bParsed && iSecure == 0;
}

/// Of one try: a connection that is refused is refused.
CBioPtr ConnectTo(const SSocketAddress& address, CHttpDeadline deadline)
{
    SNativeAddress native;
    CDescriptor connection(socket(NativeFamily(address.iFamily), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!connection.IsValid() || !ToNative(address, native))
        return nullptr;
    if (connect(connection.Get(), native.Get(), native.nLength) != 0 && errno != EINPROGRESS)
        return nullptr;
    pollfd polled{connection.Get(), POLLOUT, 0};
    int iError = 0;
    socklen_t nErrorLength = sizeof(iError);
    if (poll(&polled, 1, SecondsLeft(deadline) * 1000) != 1 ||
        getsockopt(connection.Get(), SOL_SOCKET, SO_ERROR, &iError, &nErrorLength) != 0 || iError != 0)
        return nullptr;
    CBioPtr pConnection(BIO_new_socket(connection.Get(), BIO_CLOSE));
    if (pConnection != nullptr)
        connection.Release();
    return pConnection;
}

/// Who writes certificates must not hold us with names whose servers are silent: the deadline holds here, too.
std::vector<SSocketAddress> AddressesOf(const std::string& strHost, int iFamily, CHttpDeadline deadline)
{
    std::vector<SSocketAddress> addresses;
    for (const int iLiteral : {FAMILY_IPV4, FAMILY_IPV6}) {
        SSocketAddress address;
        if (!ParseAddress(iLiteral, strHost.c_str(), address))
            continue;
        if (iLiteral == iFamily)
            addresses.push_back(address);
        return addresses;
    }
    const auto nMillis = static_cast<uint32_t>(SecondsLeft(deadline)) * 1000;
    std::vector<std::string> records;
    if (nMillis == 0 ||
        QueryDns(strHost.c_str(), iFamily == FAMILY_IPV4 ? EDnsType::A : EDnsType::AAAA, nMillis, records) != DNS_OK)
        return addresses;
    for (const std::string& strData : records) {
        SSocketAddress address;
        address.iFamily = iFamily;
        std::copy_n(strData.begin(), std::min(strData.size(), address.bytes.size()), address.bytes.begin());
        addresses.push_back(address);
    }
    return addresses;
}

CBioPtr ConnectTo(const SUrl& url, CHttpDeadline deadline)
{
    for (const int iFamily : {FAMILY_IPV4, FAMILY_IPV6}) {
        for (SSocketAddress& address : AddressesOf(url.strHost, iFamily, deadline)) {
            address.wPort = url.wPort;
            CBioPtr pConnection = SecondsLeft(deadline) > 0 ? ConnectTo(address, deadline) : nullptr;
            if (pConnection != nullptr)
                return pConnection;
        }
    }
    return nullptr;
}

/// Without a request to send it is GET, otherwise POST.
bool Transfer(const std::string& strUrl, const char* pszRequestType, BIO* pRequest, const char* pszAnswerType,
              CHttpDeadline deadline, std::vector<unsigned char>& answer)
{
    SUrl url;
    if (!strUrl.starts_with("http://") || !ParseUrl(strUrl, url))
        return false;
    const CBioPtr pConnection = ConnectTo(url, deadline);
    const int iSeconds = SecondsLeft(deadline);
    if (pConnection == nullptr || iSeconds == 0)
        return false;
    const CPipeSignalGuard guard;
    const CBioPtr pAnswer(OSSL_HTTP_transfer(nullptr, url.strHost.c_str(), url.strPort.c_str(), url.strPath.c_str(), 0,
                                             nullptr, nullptr, pConnection.get(), pConnection.get(), nullptr, nullptr,
                                             0, nullptr, pszRequestType, pRequest, pszAnswerType, 1, LARGEST_ANSWER,
                                             iSeconds, 0));
    return Drain(pAnswer.get(), answer);
}

} // namespace

bool HttpGet(const std::string& strUrl, CHttpDeadline deadline, std::vector<unsigned char>& answer)
{
    return Transfer(strUrl, nullptr, nullptr, nullptr, deadline, answer);
}

bool HttpAskOcsp(const std::string& strUrl, const std::vector<unsigned char>& request, CHttpDeadline deadline,
                 std::vector<unsigned char>& answer)
{
    const CBioPtr pRequest(BIO_new_mem_buf(request.data(), static_cast<int>(request.size())));
    return pRequest != nullptr &&
           Transfer(strUrl, "application/ocsp-request", pRequest.get(), "application/ocsp-response", deadline, answer);
}

} // namespace Platform
