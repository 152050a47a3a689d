#pragma once

#include "Bex/CList.h"
#include "Bex/CSecureSocket.h"
#include "Bex/CSimpleString.h"

/// One SMTP session (RFC 5321), command by command, with the transcript that failure reports quote. Secrets of AUTH
/// never reach the transcript, the console or a log: "********" stands in their place. Replies have an upper bound, and
/// a session an overall deadline: beyond either is socket error 10053. Owned and used by one thread; reused for any
/// number of sessions.
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
    };

    CSMTPClient();
    ~CSMTPClient() override = default;

    using Bex::CSecureSocket::Connect;
    using Bex::CSecureSocket::Send;
    void Connect(const Bex::CSimpleString& strAddress, uint16_t wPort, const Bex::CSimpleString& strName) override;
    uint32_t Send(const char* pszText) override { return SendCommand(pszText); }

    uint32_t SendCommand(const char* pszText);     ///< with its CR LF
    int ReadReply();                               ///< the code
    void Hello(const Bex::CSimpleString& strName); ///< empty: the name of this end of the connection
    bool AuthCramSha1(const Bex::CSimpleString& strUser, const Bex::CSimpleString& strPassword);
    bool AuthCramMd5(const Bex::CSimpleString& strUser, const Bex::CSimpleString& strPassword);
    bool AuthPlain(const Bex::CSimpleString& strUser, const Bex::CSimpleString& strPassword);
    bool AuthLogin(const Bex::CSimpleString& strUser, const Bex::CSimpleString& strPassword);
    bool MailFrom(const Bex::CSimpleString& strSender, const Bex::CSimpleString& strIdentity, uint32_t dwSize);

    const SCapabilities& Capabilities() const { return m_capabilities; }
    const Bex::CList<Bex::CSimpleString>& Transcript() const { return m_transcript; }
    const Bex::CSimpleString& ReplyText() const { return m_strReplyText; }
    const Bex::CSimpleString& PeerName() const { return m_strPeerName; }
    void SetDebugLevel(int iLevel) { m_iDebugLevel = iLevel; }

private:
    Bex::CList<Bex::CSimpleString> m_transcript{false};
    bool m_bAuthenticated = false;
    bool m_bEcho = true;
    char m_receiveBuffer[1024];
    Bex::CSimpleString m_strReplyText;
    int m_iReplyCode = 0;
    Bex::CSimpleString m_strPeerName;
    int m_iDebugLevel = 0;
    SCapabilities m_capabilities;
};
