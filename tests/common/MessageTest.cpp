#include "Bex/CMutex.h"
#include "Common/CMail.h"
#include "Platform/CInjectedFault.h"
#include "Platform/Errors.h"
#include "support/CLogRecorder.h"
#include "support/CTemporaryDirectory.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <tuple>

using namespace std::string_view_literals;

namespace {

class MessageTest : public testing::Test
{
protected:
    bool Load(CMail& mail, std::string_view text, bool bHeadersOnly = false) const
    {
        return static_cast<bool>(mail.Load(m_directory.Write("1.eml", std::string(text)).c_str(), bHeadersOnly));
    }
    /// Whether somebody else could take the mail file's lock; other programs use mail files of that name, too.
    static bool IsUnlocked(const char* pszName)
    {
        return std::async(std::launch::async, [pszName] { return Bex::CMutex(pszName).Lock(20000); }).get();
    }

    CTemporaryDirectory m_directory;
};

TEST_F(MessageTest, ReadsHeaderBlockAndBody)
{
    // file, subject, body
    const std::array<std::string_view, 3> CASES[] = {
        {"Subject: a\nTo: b\n\nbody\n", "a", "body\r\n"},
        {"SUBJECT:a\r\n\tb\r\n   c  \r\n\r\nbody", "a\r\n\tb\r\n\tc", "body"},
        {"Subject: a\n  \t\nTo: b\n\nbody", "a", "body"}, // a line of blanks continues the field
        {"Subject: a\n  \n b\n\nbody", "a\r\n\t\r\n\tb", "body"},
        {"Subject: a\nSubject: b\n\n", "b", ""},
        {"Date:\nSubject: a", "a", ""},
        {"no colon\nSubject: a\n\nbody", "a", "body"},
        {"no colon\r\n\r\na: b\n", "", "no colon\r\n\r\na: b\r\n"},
        {"\nSubject: a\n\nbody", "", "\r\nSubject: a\r\n\r\nbody"},
        {"Subject: a\0b\n\na\0b\rc\n"sv, "a", "ab\r\nc\r\n"}};
    for (const auto& [file, subject, body] : CASES) {
        for (const bool bHeadersOnly : {false, true}) {
            CMail mail;
            ASSERT_TRUE(Load(mail, file, bHeadersOnly)) << file;
            EXPECT_EQ(mail.Subject().View(), subject) << file;
            EXPECT_EQ(mail.Date(), mail.CreationTime().MailDate()) << file; // where the file gives none
            EXPECT_EQ(mail.Body().View(), bHeadersOnly ? "" : body) << file;
        }
    }
    CMail big;
    const std::string strBody(200000, 'x');
    ASSERT_TRUE(Load(big, "A: 1\n\n" + strBody));
    EXPECT_EQ(big.Body().View(), strBody);
    EXPECT_EQ(CMail(big).Body().Data(), big.Body().Data()); // copies share it
}

TEST_F(MessageTest, TellsBusyFilesFromBrokenOnes)
{
    const auto load = [&](const char* pszName) {
        const SLoadResult loaded = CMail().Load((m_directory / pszName).c_str(), false);
        return std::pair(loaded.result, loaded.error.iLibError);
    };
    using enum ELoadResult;
    m_directory.Write("1.eml", "a:"); // not complete yet
    EXPECT_EQ(load("1.eml"), std::pair(Busy, 0));
    m_directory.Write("1.eml", "a:b");
    EXPECT_EQ(load("1.eml"), std::pair(Loaded, 0));
    EXPECT_EQ(load("missing.eml"), std::pair(Broken, +Platform::LIB_NO_ENTRY));
    std::filesystem::create_symlink("1.eml", m_directory / "2.eml");
    EXPECT_EQ(load("2.eml"), std::pair(Broken, +Platform::LIB_LOOP));
    std::ofstream writer(m_directory / "1.eml", std::ios::app);
    EXPECT_EQ(load("1.eml"), std::pair(Busy, +Platform::LIB_ACCESS)); // still being written
    writer.close();
    for (const auto& [fault, iErrno, result] : {std::tuple(Platform::EFault::Read, EIO, Broken),
                                                {Platform::EFault::Open, EACCES, Broken},
                                                {Platform::EFault::Open, EMFILE, Busy}}) {
        const Platform::CInjectedFault failing(fault, 1, iErrno);
        EXPECT_EQ(load("1.eml"), std::pair(result, Platform::ErrorFromErrno(iErrno).iLibError));
    }
    EXPECT_TRUE(IsUnlocked("1") && IsUnlocked("2") && IsUnlocked("missing"));
}

TEST_F(MessageTest, BoundsTheHeaderBlock)
{
    const auto isTooBig = [&](const std::string& strHeader) {
        const CLogRecorder log;
        CMail mail;
        const bool bLoaded = Load(mail, strHeader + "\n0123456789");
        EXPECT_EQ(log.Lines().size(), bLoaded ? 0u : 1u);
        return !bLoaded;
    };
    std::string strLines;
    for (unsigned i = 0; i < CMessage::MAX_HEADER_LINES; ++i)
        strLines += i % 2 == 0 ? "a:b\n" : " c\n";
    EXPECT_FALSE(isTooBig(strLines));
    EXPECT_TRUE(isTooBig(strLines + "a:\n"));
    EXPECT_FALSE(isTooBig("Subject: " + std::string(CMessage::MAX_HEADER_BYTES - 11, 'x') + "\n"));
    EXPECT_TRUE(isTooBig("Subject: " + std::string(CMessage::MAX_HEADER_BYTES - 10, 'x') + "\n"));
    EXPECT_TRUE(isTooBig(std::string(CMessage::MAX_HEADER_BYTES + 1000, ' ')));
    EXPECT_FALSE(isTooBig("X-Envelope-To: " + std::string(CMail::MAX_RECIPIENTS - 1, ',') + "\n"));
    EXPECT_TRUE(isTooBig("X-Envelope-To: " + std::string(CMail::MAX_RECIPIENTS, ',') + "\n"));
    for (const std::string strField : {"X-Envelope-To: a,", "X-Envelope-From: ", "Return-Path: "}) {
        EXPECT_FALSE(isTooBig(strField + std::string(CMail::LONGEST_ADDRESS, 'a') + "\n"));
        EXPECT_TRUE(isTooBig(strField + std::string(CMail::LONGEST_ADDRESS + 1, 'a') + "\n"));
    }

    CMail grown; // by a line too much to be read again
    ASSERT_TRUE(Load(grown, strLines + "\n"));
    EXPECT_EQ(grown.Save((m_directory / "2.eml").c_str(), EWriteMode::ReturnPath).error.iLibError,
              Platform::LIB_TOO_BIG);
    EXPECT_EQ(m_directory.Names().size(), 1u);
}

TEST_F(MessageTest, RefusesForGoodWhatNeverFitsIntoMemory)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer itself has more memory than any limit";
#endif
    std::filesystem::resize_file(m_directory.Write("1.eml", "a: b\n\n"), 3u << 30);
    rlimit before{};
    getrlimit(RLIMIT_AS, &before);
    const rlimit limit{2u << 30, before.rlim_max};
    setrlimit(RLIMIT_AS, &limit);
    CMail mail;
    const SLoadResult result = mail.Load((m_directory / "1.eml").c_str(), false);
    setrlimit(RLIMIT_AS, &before);
    EXPECT_EQ(result.result, ELoadResult::Broken);
}

TEST_F(MessageTest, DropsOneEndMarkerWhenWriting)
{
    const std::pair<const char*, const char*> CASES[] = {
        {"a\r\n.\r\n", "a"}, {"\r\n.\r\n", ""}, {".\r\n", ".\r\n"}, {"a\r\n..\r\n", "a\r\n..\r\n"}, {"a\n.\n", "a"}};
    for (const auto& [pszBody, pszWritten] : CASES) {
        CMail mail;
        ASSERT_TRUE(Load(mail, std::string("Date: d\n\n") + pszBody));
        ASSERT_TRUE(mail.Save((m_directory / "2.eml").c_str(), EWriteMode::Plain));
        EXPECT_EQ(m_directory.Read("2.eml"), std::string("Date: d\r\n\r\n") + pszWritten);
    }
}

TEST_F(MessageTest, AppearsOnlyWhenItIsComplete)
{
    CMail mail;
    ASSERT_TRUE(Load(mail, "Date: d\n\nnew"));
    const Bex::CSimpleString strPath(m_directory.Write("2.eml", "old"));
    {
        const CLogRecorder log;
        const Platform::CInjectedFault full(Platform::EFault::Write, 1, ENOSPC);
        EXPECT_EQ(mail.Save(strPath, EWriteMode::Plain).error.iLibError, +Platform::LIB_NO_SPACE);
        EXPECT_EQ(log.Lines().size(), 1u);
    }
    EXPECT_EQ(mail.SaveNew(strPath, EWriteMode::Plain).result, ESaveResult::Exists);
    EXPECT_EQ(m_directory.Read("2.eml"), "old");
    EXPECT_TRUE(mail.Save(strPath, EWriteMode::Plain));
    EXPECT_EQ(m_directory.Read("2.eml"), "Date: d\r\n\r\nnew");
    EXPECT_TRUE(mail.SaveNew((m_directory / "3.eml").c_str(), EWriteMode::Plain));
    EXPECT_EQ(m_directory.Names().size(), 3u);
    EXPECT_TRUE(IsUnlocked("2") && IsUnlocked("3"));
}

} // namespace
