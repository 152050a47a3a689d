#include "SMTPc/ErrorReport.h"
#include "Bex/CSecurityException.h"
#include "Bex/CSocketException.h"
#include "SMTPc/CSMTPException.h"
#include "support/CTemporaryDirectory.h"

#include <gtest/gtest.h>
#include <stdlib.h>

namespace {

constexpr char MAIL[] = "X-Envelope-From: ann@here.example\r\nX-Envelope-To: bob@far.example\r\n"
                        "Received: by relay.example (other [192.0.2.1]); Mon, 1 Jan 2024 10:00:00 +0100\r\n"
                        "Received: from pc.example (pc.example [192.0.2.2])\r\n\tby relay.example;"
                        " Mon, 1 Jan 2024 09:00:00 +0100\r\n"
                        "Message-ID: <1@here.example>\r\n\r\ntext\r\n";
constexpr char HEAD[] = ">\r\nSubject: Returned mail: see transcript for details\r\nContent-Type: text/plain\r\n\r\n";

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
    const std::string strStart = "X-Envelope-From: <>\r\nFrom: \"Mail Delivery Subsystem\" <boss@here.example";
    const std::string strOrigin = "The original message was received at Mon, 1 Jan 2024 10:00:00 +0100\r\n"
                                  "from other [192.0.2.1]\r\nwith id <1@here.example>\r\n\r\n";
    const auto expected = [&](const std::string& strReason) {
        return strStart + HEAD + strOrigin +
               "\t----- The following addresses had permanent fatal errors -----\r\nbob@far.example\r\n\t(reason: " +
               strReason + ")\r\n\r\n\t----- Transcript of session follows -----\r\n" +
               ".... while talking to mx.far.example:\r\n\r\n" + strReason + "\r\n";
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
              std::string("X-Envelope-From: <>\r\nFrom: \"Mail Delivery Subsystem\" <bounce@here.example") + HEAD +
                  "The original message was received at Mon, 1 Jan 2024 09:00:00 +0100\r\n"
                  "from pc.example [192.0.2.2]\r\nwith id <1@here.example>\r\n\r\n"
                  "\t----- The following addresses had continuous fatal errors -----\r\nbob@far.example\r\n\r\n"
                  "\t----- Transcript of session follows -----\r\n.... while talking to mx.far.example:\r\n\r\n"
                  ">>> RCPT To:<bob@far.example>\r\n<<< 450-a\n<<< 450 b\n");
}

TEST_F(ErrorReportTest, WorksWithoutMailHostAndKeys)
{
    m_directory.Write("tobix.cfg", "Postmaster: boss@here.example\n");
    m_directory.Write("x.eml.err", std::string(5000, 'x')); // of an earlier session
    const std::string strReport = Report(CSMTPPermanentException("a", 1, Bex::CSimpleString("no way")), "");
    EXPECT_EQ(strReport,
              std::string("X-Envelope-From: <>\r\nFrom: \"Mail Delivery Subsystem\" <boss@here.example") + HEAD +
                  "\t----- The following addresses had permanent fatal errors -----\r\nbob@far.example\r\n\r\n"
                  "\t----- Transcript of session follows -----\r\nno way");
    setenv("MAILCONFIGDIR", "/nowhere", 1);
    EXPECT_NE(Report(CSMTPPermanentException("a", 1, Bex::CSimpleString("no"))).find("<postmaster@"),
              std::string::npos);
}

TEST_F(ErrorReportTest, LeavesTheEarlierOneWhenItCannotBeWritten)
{
    std::filesystem::create_directory(m_directory / ".x.eml.err.tmp");
    m_directory.Write("x.eml.err", "earlier");
    EXPECT_EQ(Report(Bex::CSocketException("a", 1, 10061)), "earlier");
}
