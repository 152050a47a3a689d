#include "SMTPc/ErrorReport.h"
#include "Bex/CSecurityException.h"
#include "Bex/CSocketException.h"
#include "Platform/CInjectedFault.h"
#include "SMTPc/CSMTPException.h"
#include "support/CTemporaryDirectory.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <stdlib.h>

namespace {

constexpr char MAIL[] = "X-Envelope-From: ann@here.example\r\nX-Envelope-To: bob@far.example\r\n"
                        "Received: by relay.example (other [192.0.2.1]); Mon, 1 Jan 2024 10:00:00 +0100\r\n"
                        "Received: from pc.example (pc.example [192.0.2.2])\r\n\tby relay.example;"
                        " Mon, 1 Jan 2024 09:00:00 +0100\r\n"
                        "Message-ID: <1@here.example>\r\n\r\ntext\r\n";
constexpr char FIRST_HOP[] = "Mon, 1 Jan 2024 10:00:00 +0100\r\nfrom other [192.0.2.1]";
constexpr char FROM_HOP[] = "Mon, 1 Jan 2024 09:00:00 +0100\r\nfrom pc.example [192.0.2.2]";

std::string Expected(const std::string& strFrom, const std::string& strOrigin, const std::string& strErrors,
                     const std::string& strReason, const std::string& strTranscript)
{
    return "X-Envelope-From: <>\r\nFrom: \"Mail Delivery Subsystem\" <" + strFrom +
           ">\r\nSubject: Returned mail: see transcript for details\r\nContent-Type: text/plain\r\n\r\n" +
           (strOrigin.empty()
                ? ""
                : "The original message was received at " + strOrigin + "\r\nwith id <1@here.example>\r\n\r\n") +
           "\t----- The following addresses had " + strErrors + " fatal errors -----\r\nbob@far.example\r\n" +
           strReason + "\r\n\t----- Transcript of session follows -----\r\n" + strTranscript;
}

class ErrorReportTest : public testing::Test
{
protected:
    ErrorReportTest()
    {
        setenv("MAILCONFIGDIR", m_directory.Path().c_str(), 1);
        m_directory.Write("tobix.cfg", "Postmaster: boss@here.example\nPostmaster.From: bounce@here.example\n");
    }
    ~ErrorReportTest() override { unsetenv("MAILCONFIGDIR"); }
    template <class TException>
    std::string Report(const TException& exception, const char* pszHost = "mx.far.example")
    {
        WriteErrorReport(*FailureOf([&] { throw exception; }), Bex::CSimpleString(m_directory / "x.eml"), pszHost,
                         "bob@far.example");
        return m_directory.Read("x.eml.err");
    }

    CTemporaryDirectory m_directory;
};

} // namespace

TEST_F(ErrorReportTest, OfABrokenSessionTellsTheErrorTwice)
{
    m_directory.Write("x.eml", MAIL);
    const auto expected = [&](const std::string& strReason) {
        return Expected("boss@here.example", FIRST_HOP, "permanent", "\t(reason: " + strReason + ")\r\n",
                        ".... while talking to mx.far.example:\r\n\r\n" + strReason + "\r\n");
    };
    EXPECT_EQ(Report(Bex::CSocketException("a", 1, 10061)), expected("the attempt to connect was rejected"));
    EXPECT_EQ(Report(Bex::CSecurityException("a", 1, 0x80090349)),
              expected("The certificate is not valid for the requested usage."));
}

TEST_F(ErrorReportTest, OfARefusalQuotesTheTranscript)
{
    m_directory.Write("x.eml", MAIL);
    Bex::CList<Bex::CSimpleString> transcript(false);
    transcript.Append(">>> RCPT To:<bob@far.example>\r\n");
    transcript.Append("<<< 450-a\n<<< 450 b\n");
    EXPECT_EQ(Report(CSMTPTemporaryException("a", 1, transcript)),
              Expected("bounce@here.example", FROM_HOP, "continuous", "",
                       ".... while talking to mx.far.example:\r\n\r\n"
                       ">>> RCPT To:<bob@far.example>\r\n<<< 450-a\n<<< 450 b\n"));
}

TEST_F(ErrorReportTest, WorksWithoutMailHostAndKeys)
{
    m_directory.Write("tobix.cfg", "Postmaster: boss@here.example\n");
    m_directory.Write("x.eml.err", std::string(5000, 'x')); // of an earlier session
    EXPECT_EQ(Report(CSMTPPermanentException("a", 1, Bex::CSimpleString("no way")), ""),
              Expected("boss@here.example", "", "permanent", "", "no way"));
    setenv("MAILCONFIGDIR", "/nowhere", 1);
    EXPECT_NE(Report(CSMTPPermanentException("a", 1, Bex::CSimpleString("no"))).find("<postmaster@"),
              std::string::npos);
}

TEST_F(ErrorReportTest, LeavesTheEarlierOneWhenItCannotBeWritten)
{
    m_directory.Write("x.eml.err", "earlier");
    const Platform::CInjectedFault full(Platform::EFault::Write, 1, ENOSPC);
    EXPECT_EQ(Report(Bex::CSocketException("a", 1, 10061)), "earlier");
}
