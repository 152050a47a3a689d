#pragma once

#include "Platform/CEventHandle.h"
#include "support/CTemporaryDirectory.h"

#include <arpa/inet.h>
#include <array>
#include <cstdlib>
#include <functional>
#include <map>
#include <mutex>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

/// A name server on loopback that gives the answers it was told to, and that this process asks as long as it lives.
/// A name it was told nothing of does not exist.
class CDnsServer
{
public:
    enum EType : uint16_t { A = 1, CNAME = 5, MX = 15, TXT = 16, AAAA = 28 };
    enum ERcode { OK = 0, SERVFAIL = 2, NXDOMAIN = 3, REFUSED = 5, SILENCE = 99 };
    using CData = std::vector<std::string>;

    CDnsServer()
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t nLength = sizeof(address);
        auto* pAddress = reinterpret_cast<sockaddr*>(&address);
        if (bind(m_iListener, pAddress, nLength) != 0 || getsockname(m_iListener, pAddress, &nLength) != 0 ||
            listen(m_iListener, 8) != 0 || bind(m_iSocket, pAddress, nLength) != 0)
            throw std::runtime_error("no port for a name server");
        std::string strConfig = "nameserver 127.0.0.1@";
        strConfig.append(std::to_string(ntohs(address.sin_port))).append("\nsearch corp.test\n");
        setenv("TOBIX_RESOLV_CONF", m_directory.Write("resolv.conf", strConfig).c_str(), 1);
        m_thread = std::thread([this] { Serve(); });
    }
    ~CDnsServer()
    {
        m_stop.Set();
        m_thread.join();
        close(m_iSocket);
        close(m_iListener);
    }
    CDnsServer(const CDnsServer&) = delete;
    CDnsServer& operator=(const CDnsServer&) = delete;

    void Tell(const std::string& strName, EType type, CData data, int iRcode = OK)
    {
        const std::lock_guard lock(m_mutex);
        m_answers[{strName, type}] = {iRcode, std::move(data)};
        m_answers.try_emplace({strName, 0}); // the name exists
    }
    int Asked(const std::string& strName, EType type)
    {
        const std::lock_guard lock(m_mutex);
        return m_asked[{strName, type}];
    }

    void OnAsked(std::function<void()> onAsked) ///< before each answer
    {
        const std::lock_guard lock(m_mutex);
        m_onAsked = std::move(onAsked);
    }

    /// Data as it goes over the wire.
    static std::string Name(const std::string& strName)
    {
        std::string strWire;
        for (size_t nStart = 0; nStart < strName.size();) {
            const size_t nEnd = std::min(strName.find('.', nStart), strName.size());
            if (nEnd > nStart)
                strWire.append(1, static_cast<char>(nEnd - nStart)).append(strName, nStart, nEnd - nStart);
            nStart = nEnd + 1;
        }
        return strWire.append(1, '\0');
    }
    static std::string Short(size_t nValue)
    {
        return {static_cast<char>(nValue >> 8 & 0xFF), static_cast<char>(nValue & 0xFF)};
    }
    static std::string Exchange(size_t nPreference, const std::string& strName)
    {
        return Short(nPreference) + Name(strName);
    }
    static std::string Address(int iFamily, const char* pszText)
    {
        char bytes[16];
        inet_pton(iFamily, pszText, bytes);
        return {bytes, iFamily == AF_INET ? 4u : 16u};
    }
    static std::string IPv4(const char* pszText) { return Address(AF_INET, pszText); }
    static std::string IPv6(const char* pszText) { return Address(AF_INET6, pszText); }

private:
    using CQuestion = std::pair<std::string, int>;
    static constexpr size_t HEADER = 12;
    static constexpr size_t LONGEST_DATAGRAM = 1232; ///< what is longer has to be asked for over TCP

    void Serve()
    {
        std::array<char, 65536> query;
        for (;;) {
            pollfd polled[] = {{m_stop.WaitDescriptor(), POLLIN, 0}, {m_iSocket, POLLIN, 0}, {m_iListener, POLLIN, 0}};
            poll(polled, 3, -1);
            if (polled[0].revents != 0)
                return;
            if (polled[2].revents != 0)
                ServeConnection(query.data(), query.size());
            if (polled[1].revents == 0)
                continue;
            sockaddr_storage peer{};
            socklen_t nPeer = sizeof(peer);
            auto* pPeer = reinterpret_cast<sockaddr*>(&peer);
            const ssize_t nRead = recvfrom(m_iSocket, query.data(), query.size(), 0, pPeer, &nPeer);
            std::string strReply = Reply(std::string(query.data(), static_cast<size_t>(nRead)));
            if (strReply.size() > LONGEST_DATAGRAM)
                strReply.replace(2, std::string::npos, Short(0x8380) + Short(0) + Short(0) + Short(0) + Short(0));
            if (!strReply.empty())
                sendto(m_iSocket, strReply.data(), strReply.size(), 0, pPeer, nPeer);
        }
    }

    void ServeConnection(char* pQuery, size_t nSize) ///< one question over TCP
    {
        const int iPeer = accept(m_iListener, nullptr, nullptr);
        const ssize_t nRead = recv(iPeer, pQuery, nSize, 0);
        const std::string strReply = nRead > 2 ? Reply(std::string(pQuery + 2, static_cast<size_t>(nRead) - 2)) : "";
        const std::string strCounted = Short(strReply.size()) + strReply;
        send(iPeer, strCounted.data(), strCounted.size(), MSG_NOSIGNAL);
        close(iPeer);
    }

    std::string Reply(const std::string& strQuery) ///< empty: silence
    {
        std::string strName;
        size_t nAt = HEADER;
        for (; strQuery[nAt] != 0; nAt += 1 + static_cast<size_t>(strQuery[nAt]))
            strName.append(strName.empty() ? "" : ".").append(strQuery, nAt + 1, static_cast<size_t>(strQuery[nAt]));
        const int iType = strQuery[nAt + 2];
        const std::lock_guard lock(m_mutex);
        ++m_asked[{strName, iType}];
        if (m_onAsked)
            m_onAsked();
        std::string strRecords;
        size_t nRecords = 0;
        const auto add = [&](const std::string& strOwner, int iRecordType, const std::string& strData) {
            strRecords += Name(strOwner) + Short(static_cast<size_t>(iRecordType)) + Short(1) + Short(0) + Short(300) +
                          Short(strData.size()) + strData;
            ++nRecords;
        };
        const auto exists = m_answers.find({strName, 0});
        auto answer = m_answers.find({strName, iType});
        int iRcode = exists != m_answers.end() ? OK : NXDOMAIN;
        if (answer != m_answers.end()) {
            iRcode = answer->second.first;
            for (const std::string& strData : answer->second.second)
                add(strName, iType, strData);
        } else if (answer = m_answers.find({strName, CNAME}); answer != m_answers.end()) {
            add(strName, CNAME, answer->second.second.front());
        }
        if (iRcode == SILENCE)
            return {};
        return strQuery.substr(0, 2) + Short(0x8180 | static_cast<size_t>(iRcode)) + Short(1) + Short(nRecords) +
               Short(0) + Short(0) + strQuery.substr(HEADER, nAt + 5 - HEADER) + strRecords;
    }

    CTemporaryDirectory m_directory;
    const int m_iSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int m_iListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::mutex m_mutex;
    std::map<CQuestion, std::pair<int, CData>> m_answers; ///< type 0: the name exists
    std::map<CQuestion, int> m_asked;
    std::function<void()> m_onAsked;
    Platform::CEventHandle m_stop;
    std::thread m_thread;
};
