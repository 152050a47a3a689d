#pragma once

#include "Bex/CList.h"
#include "Bex/CSecureSocket.h"
#include "Bex/CSimpleString.h"
#include "SMTPc/CReplyReader.h"

#include <string>
#include <string_view>
#include <vector>

/// One SMTP session (RFC 5321), command by command, with the transcript that failure reports quote. Secrets of AUTH
/// never reach the transcript, the console or a log: "********" stands in their place, also where the server repeats
/// them. A reply beyond the bounds of CReplyReader, like a connection that the server closes, is socket error 10053.
/// Owned and used by one thread; reused for any number of sessions.
class CSMTPClient : public Bex::CSecureSocket
{
public:
    struct SCapabilities
    {
        bool bExtended = false;
        bool bStartTls = false;
        bool bAuth = false;
        bool bCramMd5 = false;
        bool bCramSha1 = false;
        bool bPlain = false;
        bool bLogin = false;
        bool bSize = false;
        bool b8BitMime = false;
        bool bPipelining = false;
    };
    /// How a reply counts that is neither expected nor plainly a refusal for now (4xx) or for good (5xx).
    enum class EOtherReply { Temporary, Permanent };

    CSMTPClient();
    ~CSMTPClient() override = default;

    using Bex::CSecureSocket::Connect;
    using Bex::CSecureSocket::Send;
    void Connect(const Bex::CSimpleString& strAddress, uint16_t wPort, const Bex::CSimpleString& strName) override;
    uint32_t Send(const char* pszText) override { return SendCommand(pszText); }

    uint32_t SendCommand(const char* pszText); ///< with its CR LF
    /// Sends commands together (RFC 2920). The next calls of SendCommand are for them in turn and send nothing; from
    /// now on each ReadReply takes one reply, also of several that came together.
    void SendAhead(const std::vector<Bex::CSimpleString>& commands);
    size_t Ahead() const { return m_nAhead; } ///< so many were sent ahead, and not yet by SendCommand
    int ReadReplyAhead();                     ///< to the next one of these, which nobody sends any more
    bool HasInput() { return !m_unread.empty() || Bex::CSecureSocket::HasInput(); }
    int ReadReply();                               ///< the code
    void Hello(const Bex::CSimpleString& strName); ///< empty: the name of this end of the connection
    void StartTls();                               ///< up to the end of the handshake; all replies so far are void
    bool AuthCramSha1(const Bex::CSimpleString& strUser, const Bex::CSimpleString& strPassword);
    bool AuthCramMd5(const Bex::CSimpleString& strUser, const Bex::CSimpleString& strPassword);
    bool AuthPlain(const Bex::CSimpleString& strUser, const Bex::CSimpleString& strPassword);
    bool AuthLogin(const Bex::CSimpleString& strUser, const Bex::CSimpleString& strPassword);
    Bex::CSimpleString MailCommand(const Bex::CSimpleString& strSender, const Bex::CSimpleString& strIdentity,
                                   uint32_t dwSize) const;
    bool MailFrom(const Bex::CSimpleString& strSender, const Bex::CSimpleString& strIdentity, uint32_t dwSize);
    /// Raises the SMTP exception for a reply that was not expected, with the transcript.
    [[noreturn]] void Refuse(int iCode, EOtherReply other, int iLine) const;

    int LastCode() const { return m_reply.Code(); } ///< of the last reply, or of what has come of it
    const SCapabilities& Capabilities() const { return m_capabilities; }
    const Bex::CList<Bex::CSimpleString>& Transcript() const { return m_transcript; }
    void SetDebugLevel(int iLevel) { m_iDebugLevel = iLevel; }

private:
    using Digest = Bex::CSimpleString (*)(const Bex::CSimpleString& strChallenge, const Bex::CSimpleString& strKey);

    void Forget(); ///< what the last connection left
    Bex::CSimpleString OwnName() const;
    void LearnCapabilities();
    void Echo(const Bex::CSimpleString& strShown) const;
    uint32_t SendShown(const Bex::CSimpleString& strText, std::string_view shown);
    void ReceiveReply();
    void RecordReply();
    std::string Shown(std::string_view line) const;
    std::string ShownSoFar(std::string_view line) const;

    bool AuthCram(const char* pszCommand, Digest digest, const Bex::CSimpleString& strUser,
                  const Bex::CSimpleString& strPassword);
    void HideSecret(std::string_view secret);
    Bex::CSimpleString HiddenBase64(std::string_view bytes);
    void SendAnswer(std::string_view answer);
    void ExpectChallenge();
    bool ExpectAccepted();

    Bex::CList<Bex::CSimpleString> m_transcript{false};
    bool m_bAuthenticated = false;
    char m_receiveBuffer[1024];
    std::string_view m_unread; ///< of the buffer: replies behind the last one
    bool m_bOneByOne = false;  ///< replies may come together
    size_t m_nAhead = 0;
    CReplyReader m_reply;
    Bex::CSimpleString m_strReplyText;
    Bex::CSimpleString m_strPeerName;
    int m_iDebugLevel = 0;
    SCapabilities m_capabilities;
    std::vector<std::string> m_secrets; ///< that this connection has carried
};
