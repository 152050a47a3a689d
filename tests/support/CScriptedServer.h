#pragma once

#include "Bex/CEvent.h"
#include "Bex/CSecureSocket.h"
#include "Bex/CSocketException.h"
#include "support/Becomes.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

/// A mail server on loopback that answers as its scripts say: one script per connection, the last one for all further
/// ones. Whoever talks to it has to close the connection before it goes.
class CScriptedServer
{
public:
    /// By what is answered: "greeting", a command's first word, "answer1", "answer2".. (of AUTH), "payload", and "text"
    /// before that is read. "drop" closes the connection, "hang" waits for the client to do so; "endless" repeats what
    /// follows it for ever, "last" closes behind it, "flush" drops what has come, "late" waits until more has come, and
    /// "held" until Release, reading nothing. "RCPT2" is for the second such command of a connection. With "tls" it
    /// begins with the handshake, with the certificate that this names, else "good"; a reply to STARTTLS that begins
    /// with 220 is followed by the handshake.
    using Replies = std::map<std::string, std::string>;

    template <class... TMore>
    explicit CScriptedServer(Replies first, TMore... more) : m_scripts{std::move(first), std::move(more)...}
    {
        m_listener.Create(Platform::FAMILY_IPV4);
        m_listener.Bind("127.0.0.1");
        m_listener.SetCertificateName("good");
        m_listener.Listen(8);
        m_listener.SetLimit(Platform::CWaitLimit(&m_stop.Waitable()));
        m_thread = std::thread([this] { Serve(); });
    }
    ~CScriptedServer()
    {
        m_stop.Set();
        m_thread.join();
    }
    CScriptedServer(const CScriptedServer&) = delete;
    CScriptedServer& operator=(const CScriptedServer&) = delete;

    void SetPiece(size_t nPiece) { m_nPiece = nPiece; } ///< bytes per write; 0: the whole reply. Before it is used
    uint16_t Port() const { return m_listener.LocalEndPoint().Port(); }
    std::vector<std::string> Commands() ///< of all connections so far, without line ends
    {
        const std::lock_guard lock(m_mutex);
        return m_commands;
    }
    std::string Payload() ///< of the last transfer, with its end marker
    {
        const std::lock_guard lock(m_mutex);
        return m_strPayload;
    }
    std::vector<std::string> Taken() ///< the RCPT commands of the mails that were
    {
        const std::lock_guard lock(m_mutex);
        return m_taken;
    }
    bool IsHeld() const { return m_bHeld; }     ///< or was
    void Release() { m_release.Set(); }         ///< from now on nothing is
    void WaitFor(const std::string& strCommand) ///< that begins so
    {
        const auto isThat = [&](const std::string& strLine) { return strLine.starts_with(strCommand); };
        if (!Becomes([&] { return std::ranges::any_of(Commands(), isThat); }))
            throw std::runtime_error("never came: " + strCommand);
    }

private:
    static constexpr uint32_t LONGEST_WAIT = 20; // seconds

    void Serve()
    {
        for (size_t nConnection = 0;; ++nConnection) {
            m_peer.emplace().SetTimeout(LONGEST_WAIT); // each has a certificate store of its own
            try {
                Bex::CSocketEndPoint from;
                m_listener.Accept(*m_peer, from);
            } catch (const Bex::CSocketException&) { // the end
                return;
            }
            try {
                m_strReceived.clear();
                m_counts.clear();
                Talk(m_scripts[std::min(nConnection, m_scripts.size() - 1)]);
            } catch (const Bex::CException&) { // as the clients are tried with it
            }
            m_peer->Close();
        }
    }
    void Talk(const Replies& script)
    {
        const auto tls = script.find("tls");
        if (tls != script.end() && !tls->second.empty()) {
            m_peer->SetCertificateName(tls->second.c_str());
            m_peer->SetProtocols(Platform::TLS_PROTOCOL_TLS1_2); // another server, which knows no sessions of "good"
        }
        if (tls != script.end())
            m_peer->Negotiate({});
        bool bGoesOn = Answer(script, "greeting", "220 mx.example ready\r\n");
        unsigned nAnswers = 0;
        while (bGoesOn) {
            const std::string strLine = ReadUpTo("\r\n");
            const std::string strWord = strLine.substr(0, strLine.find_first_of(" \r"));
            Note(strLine.substr(0, strLine.size() - 2));
            const bool bCommand = Standard(strWord) != nullptr;
            if (strWord == "AUTH")
                nAnswers = 0;
            const std::string strKey = bCommand ? strWord : "answer" + std::to_string(++nAnswers);
            bGoesOn = Answer(script, strKey, bCommand ? Standard(strWord) : "235 welcome\r\n");
            if (bGoesOn && strWord == "STARTTLS" && m_strSent.starts_with("220"))
                m_peer->Negotiate({});
            if (bGoesOn && strWord == "DATA" && m_strSent.starts_with("354")) {
                Answer(script, "text", "");
                m_strReceived.insert(0, "\r\n"); // where a single dot may follow
                const std::string strPayload = ReadUpTo("\r\n.\r\n").substr(2);
                std::unique_lock lock(m_mutex);
                m_strPayload = strPayload;
                lock.unlock();
                bGoesOn = Answer(script, "payload", "250 taken\r\n");
            }
        }
    }
    static const char* Standard(const std::string& strWord)
    {
        static const std::map<std::string, const char*> STANDARD = {
            {"EHLO", "250-mx.example greets\r\n250 SIZE 1000000\r\n"},
            {"HELO", "250 mx.example\r\n"},
            {"STARTTLS", "454 not now\r\n"},
            {"AUTH", "334 \r\n"},
            {"MAIL", "250 sender ok\r\n"},
            {"RCPT", "250 recipient ok\r\n"},
            {"DATA", "354 go on\r\n"},
            {"RSET", "250 forgotten\r\n"},
            {"QUIT", "221 bye\r\n"}};
        const auto found = STANDARD.find(strWord);
        return found == STANDARD.end() ? nullptr : found->second;
    }
    bool Answer(const Replies& script, const std::string& strKey, const char* pszStandard)
    {
        auto found = script.find(strKey + std::to_string(++m_counts[strKey]));
        if (found == script.end())
            found = script.find(strKey);
        m_strSent = found == script.end() ? pszStandard : found->second;
        if (m_strSent.starts_with("held")) {
            m_bHeld = true;
            Bex::WaitForAny({&m_release.Waitable(), &m_stop.Waitable()}, Platform::INFINITE);
            m_strSent = m_strSent.size() > 4 ? m_strSent.substr(4) : pszStandard;
        }
        if (m_strSent == "hang")
            ReadUpTo("never");
        while (m_strSent.starts_with("endless"))
            Send(std::string_view(m_strSent).substr(7));
        if (m_strSent == "drop")
            return false;
        if (m_strSent.starts_with("flush"))
            m_strReceived.clear();
        while (m_strSent.starts_with("late") && m_strReceived.empty())
            ReadMore();
        for (const char* pszDone : {"flush", "late"})
            m_strSent.erase(0, m_strSent.starts_with(pszDone) ? std::strlen(pszDone) : 0);
        if (strKey == "payload" && m_strSent.find("250") != std::string::npos)
            NoteTaken();
        const bool bLast = m_strSent.starts_with("last");
        Send(std::string_view(m_strSent).substr(bLast ? 4 : 0));
        return !bLast;
    }
    void Send(std::string_view text)
    {
        while (!text.empty()) {
            const size_t nCount = m_nPiece == 0 ? text.size() : std::min(m_nPiece, text.size());
            m_peer->Send(text.data(), static_cast<uint32_t>(nCount), 0);
            text.remove_prefix(nCount);
            if (m_nPiece != 0)
                std::this_thread::sleep_for(std::chrono::microseconds(200)); // so that the pieces arrive as such
        }
    }
    std::string ReadUpTo(const std::string& strEnd)
    {
        size_t nEnd = 0;
        for (size_t nFrom = 0; (nEnd = m_strReceived.find(strEnd, nFrom)) == std::string::npos; ReadMore())
            nFrom = m_strReceived.size() - std::min(m_strReceived.size(), strEnd.size() - 1);
        const std::string strText = m_strReceived.substr(0, nEnd + strEnd.size());
        m_strReceived.erase(0, strText.size());
        return strText;
    }
    void ReadMore()
    {
        char buffer[16384];
        const uint32_t nCount = m_peer->Receive(buffer, sizeof(buffer), 0);
        if (nCount == 0)
            Bex::ThrowSocketException("CScriptedServer", __LINE__, 10053);
        m_strReceived.append(buffer, nCount);
    }
    void Note(const std::string& strCommand)
    {
        const std::lock_guard lock(m_mutex);
        m_commands.push_back(strCommand);
    }

    void NoteTaken() ///< unless there is nothing, as after a refusal
    {
        const std::lock_guard lock(m_mutex);
        const auto IsRecipient = [](const std::string& strCommand) { return strCommand.starts_with("RCPT"); };
        if (m_strPayload != ".\r\n")
            m_taken.push_back(*std::find_if(m_commands.rbegin(), m_commands.rend(), IsRecipient));
    }

    const std::vector<Replies> m_scripts;
    size_t m_nPiece = 0;
    Bex::CEvent m_stop;
    Bex::CEvent m_release;
    std::atomic<bool> m_bHeld = false;
    Bex::CSecureSocket m_listener;
    std::optional<Bex::CSecureSocket> m_peer;
    std::string m_strReceived;
    std::string m_strSent;
    std::map<std::string, int> m_counts; ///< of what was answered
    std::mutex m_mutex;
    std::vector<std::string> m_commands;
    std::vector<std::string> m_taken;
    std::string m_strPayload;
    std::thread m_thread;
};
