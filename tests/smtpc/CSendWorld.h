#pragma once

#include "Common/Globals.h"
#include "SMTPc/CSMTPSendThread.h"
#include "support/CLogRecorder.h"
#include "support/CScriptedServer.h"
#include "support/CTemporaryDirectory.h"

#include <future>
#include <gtest/gtest.h>
#include <stdlib.h>

inline bool Holds(std::string_view text, std::string_view part) { return text.find(part) != text.npos; }

inline void PrintTo(EVerdict verdict, std::ostream* pStream) { *pStream << static_cast<int>(verdict); }

/// One attempt of one mail, on a thread of its own.
class CAttempt : public CSMTPSendThread
{
public:
    CAttempt(const SDeliverySettings& settings, const std::string& strPath) : CSMTPSendThread(settings)
    {
        m_strMailPath = Bex::CSimpleString(strPath);
        EXPECT_TRUE(Start());
    }
    ~CAttempt() override { Stop(); }
    EVerdict Verdict()
    {
        m_done.get_future().wait();
        return static_cast<EVerdict>(m_iResult);
    }

private:
    void Body() override
    {
        SendMail();
        m_done.set_value();
    }
    std::promise<void> m_done;
};

/// A mail file, the relay hosts that it goes to, and what came of it.
class CSendWorld
{
public:
    CSendWorld()
    {
        setenv("TOBIX_CONNECTIVITY", "4", 1); // loopback is all there may be
        setenv("MAILCONFIGDIR", m_directory.Path().c_str(), 1);
        settings.strHelloName = "me.example";
        settings.dwTimeout = 20;
        m_directory.Write("tobix.cfg", "Postmaster: boss@here.example\n");
        WriteMail();
    }
    ~CSendWorld()
    {
        SmartHosts().RemoveAll();
        Masquerading().RemoveAll();
        unsetenv("MAILCONFIGDIR");
    }
    CSendWorld(const CSendWorld&) = delete;
    CSendWorld& operator=(const CSendWorld&) = delete;

    void WriteMail(const std::string& strHeader = "X-Envelope-From: Ann@Here.example\r\n"
                                                  "X-Envelope-To: Bob@Far.Example\r\n",
                   const std::string& strBody = "text\r\n")
    {
        m_directory.Write("x.eml", strHeader + "Message-ID: <1@here>\r\nDate: today\r\n\r\n" + strBody);
    }
    /// Entries like "user:password@127.0.0.1:%t", "%" standing for the server's port.
    void Route(const CScriptedServer& server, std::string strEntries = "127.0.0.1:%", const char* pszKey = "*")
    {
        const std::string strPort = std::to_string(server.Port());
        for (size_t n = strEntries.find('%'); n != std::string::npos; n = strEntries.find('%'))
            strEntries.replace(n, 1, strPort);
        SmartHosts().Set(pszKey, Bex::CSimpleString(std::string_view(strEntries)));
    }
    EVerdict Send() { return CAttempt(settings, Path()).Verdict(); }
    EVerdict Send(const CScriptedServer& server, const std::string& strEntries = "127.0.0.1:%")
    {
        Route(server, strEntries);
        return Send();
    }

    std::string Path() const { return m_directory / "x.eml"; }
    std::string Report() const { return m_directory.Read("x.eml.err"); }
    bool HasMail() const { return std::filesystem::exists(Path()); }
    bool Logged(const std::string& strPart) const { return m_log.Contains(strPart); }

    CLogRecorder& Log() { return m_log; }

    SDeliverySettings settings = SDeliverySettings::FromConfiguration();

private:
    CTemporaryDirectory m_directory;
    CLogRecorder m_log;
};
