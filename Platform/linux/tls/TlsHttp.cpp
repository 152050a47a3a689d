#include "Platform/linux/tls/TlsHttp.h"

#include "Platform/CSocketHandle.h"
#include "Platform/DnsQuery.h"
#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/net/NativeAddress.h"
#include "Platform/linux/thread/PollWithin.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <poll.h>
#include <string_view>

namespace Platform {

namespace {

constexpr size_t LARGEST_ANSWER = 16u << 20;
constexpr size_t LARGEST_HEAD = 65536;
constexpr std::string_view SCHEME = "http://";
constexpr std::string_view HEAD_END = "\r\n\r\n";
constexpr size_t NONE = std::string_view::npos;
constexpr uint16_t HTTP_PORT = 80;

struct SUrl
{
    std::string strHost;
    std::string strAuthority; ///< host and port, as the server is told
    std::string strPath;
    uint16_t wPort = HTTP_PORT;
};

/// "http://host[:port][/path]". Whoever writes certificates must not write requests: nothing but visible characters.
bool ParseUrl(std::string_view text, SUrl& url)
{
    if (!text.starts_with(SCHEME) || !std::ranges::all_of(text, [](char c) { return c > ' ' && c < '\x7F'; }))
        return false;
    text = text.substr(SCHEME.size(), text.find('#') - SCHEME.size());
    const size_t nPath = std::min(text.find_first_of("/?"), text.size());
    url.strAuthority = text.substr(0, nPath);
    const std::string_view path = text.substr(nPath);
    url.strPath = std::string(path.starts_with('/') ? "" : "/").append(path);
    std::string_view host = url.strAuthority;
    const size_t nColon = host.rfind(':');
    if (nColon != NONE && host.find(']', nColon) == NONE) {
        const std::string_view port = host.substr(nColon + 1);
        const auto [pEnd, error] = std::from_chars(port.begin(), port.end(), url.wPort);
        if (error != std::errc() || pEnd != port.end())
            return false;
        host = host.substr(0, nColon);
    }
    if (host.starts_with('[') && host.ends_with(']'))
        host = host.substr(1, host.size() - 2);
    url.strHost = host;
    return !host.empty();
}

/// Asked before every step, so that a peer that is always ready gains nothing either.
bool WaitFor(const CDescriptor& connection, short sEvents, const CWaitLimit& limit)
{
    pollfd polled{connection.Get(), sEvents, 0};
    return limit.HasTimeLeft() && PollWithin({&polled, 1}, limit) == EPollEnd::Ready;
}

/// Of one try: a connection that is refused is refused.
CDescriptor ConnectTo(const SSocketAddress& address, const CWaitLimit& limit)
{
    SNativeAddress native;
    CDescriptor connection(socket(NativeFamily(address.iFamily), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!connection.IsValid() || !ToNative(address, native))
        return {};
    if (connect(connection.Get(), native.Get(), native.nLength) != 0 && errno != EINPROGRESS)
        return {};
    int iError = 0;
    socklen_t nErrorLength = sizeof(iError);
    if (!WaitFor(connection, POLLOUT, limit) ||
        getsockopt(connection.Get(), SOL_SOCKET, SO_ERROR, &iError, &nErrorLength) != 0 || iError != 0)
        return {};
    return connection;
}

/// Who writes certificates must not hold us with names whose servers are silent: the limit holds here, too.
std::vector<SSocketAddress> AddressesOf(const std::string& strHost, int iFamily, const CWaitLimit& limit)
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
    std::vector<std::string> records;
    if (limit.IsOver() ||
        QueryDns(strHost.c_str(), iFamily == FAMILY_IPV4 ? EDnsType::A : EDnsType::AAAA, limit, records) != DNS_OK)
        return addresses;
    for (const std::string& strData : records) {
        SSocketAddress address;
        address.iFamily = iFamily;
        std::copy_n(strData.begin(), std::min(strData.size(), address.bytes.size()), address.bytes.begin());
        addresses.push_back(address);
    }
    return addresses;
}

CDescriptor ConnectTo(const SUrl& url, const CWaitLimit& limit)
{
    for (const int iFamily : {FAMILY_IPV4, FAMILY_IPV6}) {
        for (SSocketAddress& address : AddressesOf(url.strHost, iFamily, limit)) {
            address.wPort = url.wPort;
            CDescriptor connection = ConnectTo(address, limit);
            if (connection.IsValid())
                return connection;
        }
    }
    return {};
}

bool Send(const CDescriptor& connection, std::string_view bytes, const CWaitLimit& limit)
{
    while (!bytes.empty()) {
        if (!WaitFor(connection, POLLOUT, limit))
            return false;
        const ssize_t iSent = send(connection.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (iSent < 0 && errno != EAGAIN && errno != EINTR)
            return false;
        bytes.remove_prefix(static_cast<size_t>(std::max<ssize_t>(iSent, 0)));
    }
    return true;
}

/// Appends what has come; false at the end, also that of the time.
bool ReceiveMore(const CDescriptor& connection, const CWaitLimit& limit, std::string& strReceived, bool& bEnd)
{
    char buffer[16384];
    if (!WaitFor(connection, POLLIN, limit))
        return false;
    const ssize_t iReceived = recv(connection.Get(), buffer, sizeof(buffer), 0);
    bEnd = iReceived == 0;
    strReceived.append(buffer, static_cast<size_t>(std::max<ssize_t>(iReceived, 0)));
    return iReceived >= 0 || errno == EAGAIN || errno == EINTR;
}

/// The head without the empty line that ends it; what came behind it is the begin of the document.
bool ReceiveHead(const CDescriptor& connection, const CWaitLimit& limit, std::string& strHead, std::string& strDocument)
{
    size_t nEnd = NONE;
    for (bool bEnd = false; nEnd == NONE;) {
        const size_t nSearched = strHead.size() - std::min(strHead.size(), HEAD_END.size());
        if (bEnd || strHead.size() > LARGEST_HEAD || !ReceiveMore(connection, limit, strHead, bEnd))
            return false;
        nEnd = strHead.find(HEAD_END, nSearched);
    }
    strDocument = strHead.substr(nEnd + HEAD_END.size());
    strHead.resize(nEnd);
    return nEnd <= LARGEST_HEAD && strHead.starts_with("HTTP/1.") && strHead.substr(8, 4) == " 200";
}

/// Of the field; LARGEST_ANSWER + 1 when there is none, which lets the end of the connection end the document.
size_t ContentLength(std::string strHead)
{
    constexpr std::string_view FIELD = "\ncontent-length:";
    std::ranges::transform(strHead, strHead.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c; });
    const size_t nField = strHead.find(FIELD);
    const size_t nDigits = nField == NONE ? NONE : strHead.find_first_not_of(" \t", nField + FIELD.size());
    size_t nLength = LARGEST_ANSWER + 1;
    if (nDigits != NONE)
        std::from_chars(strHead.data() + nDigits, strHead.data() + strHead.size(), nLength);
    return nLength;
}

bool Transfer(const std::string& strUrl, std::string_view method, const std::string& strFieldsAndDocument,
              const CWaitLimit& limit, std::vector<unsigned char>& answer)
{
    SUrl url;
    if (!ParseUrl(strUrl, url))
        return false;
    const CDescriptor connection = ConnectTo(url, limit);
    const std::string strRequest = std::string(method) + " " + url.strPath + " HTTP/1.0\r\nHost: " + url.strAuthority +
                                   "\r\n" + strFieldsAndDocument;
    std::string strHead;
    std::string strDocument;
    if (!connection.IsValid() || !Send(connection, strRequest, limit) ||
        !ReceiveHead(connection, limit, strHead, strDocument))
        return false;
    const size_t nLength = ContentLength(strHead);
    for (bool bEnd = false; !bEnd && strDocument.size() < nLength;) {
        if (strDocument.size() > LARGEST_ANSWER || !ReceiveMore(connection, limit, strDocument, bEnd))
            return false;
    }
    answer.assign(strDocument.begin(),
                  strDocument.begin() + static_cast<ptrdiff_t>(std::min(strDocument.size(), nLength)));
    return !answer.empty() && answer.size() <= LARGEST_ANSWER;
}

} // namespace

bool HttpGet(const std::string& strUrl, const CWaitLimit& limit, std::vector<unsigned char>& answer)
{
    return Transfer(strUrl, "GET", "\r\n", limit, answer);
}

bool HttpAskOcsp(const std::string& strUrl, const std::vector<unsigned char>& request, const CWaitLimit& limit,
                 std::vector<unsigned char>& answer)
{
    return Transfer(strUrl, "POST",
                    "Content-Type: application/ocsp-request\r\nContent-Length: " + std::to_string(request.size()) +
                        "\r\n\r\n" + std::string(request.begin(), request.end()),
                    limit, answer);
}

} // namespace Platform
