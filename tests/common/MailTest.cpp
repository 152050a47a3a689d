#include "Bex/CEvent.h"
#include "Common/CMail.h"
#include "Common/LocalHostIdentity.h"
#include "Common/Version.h"
#include "support/CTemporaryDirectory.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tuple>
#include <vector>

using testing::ElementsAre;

namespace {

/// Takes header lines as a mail file would give them.
struct SHeaders : CMail
{
    SHeaders(const std::vector<const char*>& lines)
    {
        for (const char* pszLine : lines)
            ParseHeaderLine(pszLine);
    }
    std::vector<std::string> RecipientList() const
    {
        std::vector<std::string> recipients;
        for (const Bex::CSimpleString& strRecipient : Recipients())
            recipients.emplace_back(strRecipient.View());
        return recipients;
    }
};

TEST(Mail, TakesTheSenderByPrecedence)
{
    // lines, sender, return path
    const std::tuple<std::vector<const char*>, const char*, const char*> CASES[] = {
        {{"Return-Path: <r@R>", "X-Envelope-From: <e@E>"}, "e@e", "e@e"},
        {{"X-Envelope-From: e@e", "Return-Path: <r@r>"}, "e@e", "r@r"},
        {{"envelope-from: e@e", "X-Envelope-From: f@f"}, "f@f", "f@f"},
        {{"X-Sender: s@s", "Return-Path: r@r"}, "s@s", "r@r"},
        {{"Return-Path: r@r", "X-Sender: s@s"}, "r@r", "r@r"},
        {{"Return-Path: r@r", "Return-Path: q@q"}, "r@r", "q@q"},
        {{"X-Envelope-From: e@e", "X-Envelope-From: <>"}, "", ""},
        {{"X-Envelope-From: ", "X-Sender: s@s", "Return-Path: r@r"}, "", "r@r"}};
    for (const auto& [lines, pszSender, pszReturnPath] : CASES) {
        const SHeaders mail(lines);
        EXPECT_EQ(mail.EnvelopeSender().View(), pszSender) << lines.front();
        EXPECT_EQ(mail.ReturnPath().View(), pszReturnPath) << lines.front();
    }
    EXPECT_EQ(SHeaders({"Return-Path: r@r"}).FromAddress().View(), "r@r");
    EXPECT_EQ(SHeaders({"X-Envelope-From: e@e", "From: A <a@a>", "Return-Path: r@r"}).FromAddress().View(), "a@a");
    EXPECT_EQ(SHeaders({"X-Envelope-From: e@e", "From:"}).FromAddress().View(), "e@e");
}

TEST(Mail, TakesTheRecipientsByPrecedence)
{
    EXPECT_THAT(SHeaders({"X-Envelope-To: a@A,b@B"}).RecipientList(), ElementsAre("a@a", "b@b"));
    EXPECT_THAT(SHeaders({"X-Envelope-To: a; b,,c"}).RecipientList(), ElementsAre("a", " b", "c"));
    EXPECT_THAT(SHeaders({"Envelope-To: <a@a>,<b@b>"}).RecipientList(), ElementsAre("a@a"));
    EXPECT_THAT(SHeaders({"X-Envelope-To: a,b", "Envelope-To: c"}).RecipientList(), ElementsAre("c"));
    EXPECT_THAT(SHeaders({"X-Envelope-To: a", "Envelope-To: <>"}).RecipientList(), ElementsAre());
    for (const char* pszName : {"X-Delivered-To", "X-Original-To", "X-Rcpt-To", "X-Real-To", "x-receiver"}) {
        const std::string strLine = std::string(pszName) + ": o@o";
        EXPECT_THAT(SHeaders({strLine.c_str(), "Delivered-To: d@d"}).RecipientList(), ElementsAre("o@o"));
        EXPECT_THAT(SHeaders({"X-Envelope-To: e", strLine.c_str()}).RecipientList(), ElementsAre("e"));
        EXPECT_THAT(SHeaders({strLine.c_str(), "X-Envelope-To: e"}).RecipientList(), ElementsAre("e"));
    }
    EXPECT_THAT(SHeaders({"Delivered-To: mailing list l@l"}).RecipientList(), ElementsAre("l@l"));
    EXPECT_THAT(SHeaders({"Delivered-To: d@d", "Delivered-To: f@f"}).RecipientList(), ElementsAre("d@d"));
    EXPECT_EQ(SHeaders({"X-Envelope-To: a,b"}).To().View(), "<a>");
    EXPECT_EQ(SHeaders({"To: x", "X-Envelope-To: a,b"}).To().View(), "x");
}

constexpr char ENVELOPE_LINES[] = "X-Envelope-From: s@s\r\nX-Envelope-To: a@a\r\n";
constexpr char OTHER_LINES[] =
    "Received: by a\r\n\twith b\r\nReceived: c\r\nMessage-ID: <Id@host>\r\nFrom: \"Ann\" <Ann@A>\r\n"
    "Organization: o\r\nTo: t\r\nCc: c\r\nBcc: b\r\nSubject: u\r\nDate: d\r\nReturn-Receipt-To: <r@r>\r\n"
    "Disposition-Notification-To: <n@n>\r\nMIME-Version: 1.0\r\nContent-Type: text/plain\r\n"
    "Content-Transfer-Encoding: 8bit\r\nContent-Language: en\r\nContent-Disposition: inline\r\n"
    "Content-Description: e\r\nX-Other: 1\r\nx-other: 2\r\nReferences: f\r\nIn-Reply-To: i\r\nReply-To: p\r\n"
    "Precedence: bulk\r\nX-Authenticated-As: h\r\nX-Resent-For: j\r\n\r\n";

TEST(Mail, WritesItsHeadersInOrder)
{
    CMail mail;
    mail.ParseHeaderBlock(
        "x-resent-for: j\r\nx-authenticated-as: h\r\nprecedence: bulk\r\nreply-to: p\r\nin-reply-to: i\r\n"
        "references: f\r\nX-Other: 1\r\nx-other: 2\r\ncontent-description: e\r\ncontent-disposition: inline\r\n"
        "content-language: en\r\ncontent-transfer-encoding: 8bit\r\ncontent-type: text/plain\r\nmime-version: 1.0\r\n"
        "disposition-notification-to: n@N\r\nreturn-receipt-to: Rick <r@R>\r\ndate: d\r\nsubject: u\r\nbcc: b\r\n"
        "cc: c\r\nto: t\r\norganization: o\r\nfrom: Ann <Ann@A>\r\nmessage-id: <Id@Host>\r\n"
        "received: by a\r\n\twith b\r\nreceived: c\r\nx-envelope-to: a@a,b@b\r\nx-envelope-from: s@s\r\n"
        "return-path: <p@p>\r\n\r\nbody");
    EXPECT_EQ(mail.GetHeaderText(EWriteMode::Plain), OTHER_LINES);
    EXPECT_EQ(mail.GetHeaderText(EWriteMode::Envelope), std::string(ENVELOPE_LINES) + OTHER_LINES);
    EXPECT_EQ(mail.GetHeaderText(EWriteMode::ReturnPath), std::string("Return-Path: <p@p>\r\n") + OTHER_LINES);

    CMail copy(mail, "b@b"); // for the second recipient
    EXPECT_EQ(copy.GetHeaderText(EWriteMode::Plain), OTHER_LINES);
    EXPECT_EQ(copy.GetHeaderText(EWriteMode::Envelope),
              std::string("X-Envelope-From: s@s\r\nX-Envelope-To: b@b\r\n") + OTHER_LINES);
    copy.Received().Prepend("first");
    EXPECT_EQ(copy.Received().Count(), 3u);
    EXPECT_EQ(mail.Received().Count(), 2u);
    EXPECT_EQ(CMail(mail).Recipients().Count(), 2u);
}

TEST(Mail, WritesWhatIsThere)
{
    const SHeaders anonymous({"Date: d", "From: <>"});
    EXPECT_EQ(anonymous.GetHeaderText(EWriteMode::Envelope), "Date: d\r\n\r\n");
    EXPECT_EQ(anonymous.GetHeaderText(EWriteMode::ReturnPath), "Return-Path: <>\r\nDate: d\r\n\r\n");
    const SHeaders bounce({"Date: d", "X-Envelope-From: <>", "X-Envelope-To: a"});
    EXPECT_EQ(bounce.GetHeaderText(EWriteMode::Envelope),
              "X-Envelope-From: \r\nX-Envelope-To: a\r\nTo: <a>\r\nDate: d\r\n\r\n");
    const SHeaders sent({"Date: d", "X-Envelope-From: s@s"});
    EXPECT_EQ(sent.GetHeaderText(EWriteMode::Plain), "From: <s@s>\r\nDate: d\r\n\r\n");
}

TEST(Mail, TellsOfItsReceptionHere)
{
    const Bex::CTime time(1419440585);
    const auto strStart =
        Bex::CSimpleString::Formatted("by host (marlune Mail Delivery Agent %d.%02d.%04d.%d)\r\n\twith DMTP",
                                      Version::MAJOR, Version::MINOR, Version::BUILD, Version::REVISION);
    for (const auto& [pszFor, pszClause] : {std::pair("a@b", " for <a@b>; "), {"", "; "}})
        EXPECT_EQ(MakeReceivedValue("host", pszFor, time).View(),
                  std::string(strStart.View()) + pszClause + time.MailDate().Text());
    EXPECT_THAT(LocalHostIdentity::Obtain().strAddress.Text(), testing::MatchesRegex("([0-9]+\\.){3}[0-9]+"));
    Bex::CEvent stop;
    stop.Set();
    EXPECT_EQ(LocalHostIdentity::Obtain(Platform::CWaitLimit(&stop.Waitable())).strAddress, "0.0.0.0");
}

/// TOBIX_MAIL_CORPUS: a directory, however deep, of .eml files that real programs have written.
TEST(MailCorpus, ComesBackFromItsStoredCopyUnchanged)
{
    const char* const pszCorpus = std::getenv("TOBIX_MAIL_CORPUS");
    if (pszCorpus == nullptr || *pszCorpus == '\0')
        GTEST_SKIP() << "TOBIX_MAIL_CORPUS names no directory of mail files";
    const CTemporaryDirectory directory;
    unsigned nMails = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(pszCorpus)) {
        if (entry.path().extension() != ".eml")
            continue;
        directory.Write("1.eml", "X-Envelope-From: s@s\nX-Envelope-To: r@r\n" + directory.Read(entry.path()));
        CMail mail;
        ASSERT_TRUE(mail.Load((directory / "1.eml").c_str(), false)) << entry.path();
        for (const EWriteMode mode : {EWriteMode::Plain, EWriteMode::Envelope, EWriteMode::ReturnPath}) {
            ASSERT_TRUE(mail.Save((directory / "2.eml").c_str(), mode));
            CMail stored;
            ASSERT_TRUE(stored.Load((directory / "2.eml").c_str(), false)) << entry.path();
            EXPECT_EQ(stored.Body().View(), mail.Body().View()) << entry.path();
            ASSERT_TRUE(stored.Save((directory / "3.eml").c_str(), mode));
            EXPECT_EQ(directory.Read("3.eml"), directory.Read("2.eml")) << entry.path();
        }
        ++nMails;
    }
    EXPECT_GT(nMails, 0u);
}

} // namespace
