#include "Bex/CBufferedStreamReader.h"
#include "Bex/CBufferedStreamWriter.h"
#include "Bex/CDirectory.h"
#include "Bex/CFileException.h"
#include "Bex/CFileFind.h"
#include "Bex/CLockFile.h"
#include "Bex/CTextFile.h"
#include "Platform/CInjectedFault.h"
#include "support/CLogRecorder.h"
#include "support/CTemporaryDirectory.h"

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace Bex;
using Platform::CInjectedFault, Platform::EFault, Platform::ESeekFrom;

namespace {

constexpr uint32_t TEXT_READ = CFile::typeText | CFile::modeRead | CFile::shareDenyWrite;
constexpr uint32_t TEXT_BOTH = CFile::typeText | CFile::modeReadWrite | CFile::modeCreate;

class FilesTest : public testing::Test
{
protected:
    CSimpleString Path(const char* pszName) const { return CSimpleString(m_directory / pszName); }
    /// "LibError/SysError" of the exception; the place, too, where it is a fixed one.
    static std::string ErrorOf(const std::function<void()>& failing, bool bWithPlace = false)
    {
        try {
            failing();
            return "";
        } catch (const CFileException& e) {
            const std::string strPlace = std::string(" ") + e.SourceFile() + ":" + std::to_string(e.Line());
            return std::to_string(e.LibError()) + "/" + std::to_string(e.SysError()) + (bWithPlace ? strPlace : "");
        }
    }
    std::string OpenError(const char* pszName, uint32_t dwFlags) const
    {
        return ErrorOf([&] { CFile().Open(Path(pszName), dwFlags); }, true);
    }
    CTemporaryDirectory m_directory;
    CLogRecorder m_log;
    CTextFile m_file;
    CFileInputStream m_input{m_file};
    CFileOutputStream m_output{m_file};
    CSimpleString m_strText;
};

TEST_F(FilesTest, OpenChecksItsFlagsFirst)
{
    EXPECT_EQ(OpenError("x", CFile::modeWrite | CFile::modeCreate), "22/160 Bex/CFile:104");
    EXPECT_EQ(m_log.Take(), "3 must specify either Bex::CFile::typeText or Bex::CFile::typeBinary in call to "
                            "CFile::Open\n");
    EXPECT_EQ(OpenError("x", CFile::modeCreate | CFile::typeText), "22/160 Bex/CFile:111");
    EXPECT_EQ(m_log.Take(), "3 must specify either Bex::CFile::modeWrite or Bex::CFile::modeReadWrite with "
                            "Bex::CFile::modeCreate in call to CFile::Open\n");
    m_directory.Write("present", "kept");
    EXPECT_EQ(OpenError("present", CFile::modeTruncate | CFile::typeText), "22/87 Bex/CFile:150");
    EXPECT_EQ(OpenError("x", TEXT_READ), "2/2 Bex/CFile:150");
    EXPECT_EQ(m_directory.Read("present") + m_log.Take(), "kept");
}

TEST_F(FilesTest, OperationsOnAClosedFileSaySo)
{
    CFile plain;
    CTextFile text;
    char c = 0;
    for (CFile* pFile : {&plain, static_cast<CFile*>(&text)}) {
        for (const std::function<void()>& operation : std::initializer_list<std::function<void()>>{
                 [&] { pFile->Close(); }, [&] { pFile->Read(&c, 1); }, [&] { pFile->Write(&c, 1); },
                 [&] { pFile->IsEOF(); }, [&] { pFile->Tell(); }})
            EXPECT_EQ(ErrorOf(operation), pFile == &plain ? "22/87" : "22/6");
    }
}

TEST_F(FilesTest, NamesAreLookedUpAndMissingOnesTold)
{
    m_directory.Write("file", "");
    const timespec times[] = {{-1, 500}, {-1, 999'999'999}}; // before 1970 whole seconds still round down
    ASSERT_EQ(utimensat(AT_FDCWD, Path("file").Text(), times, 0), 0);
    EXPECT_EQ(CFile::GetTimes(Path("file")).modified.Seconds(), -1);
    CDirectory::Create(Path("directory"));
    EXPECT_TRUE(CDirectory::Exists(Path("directory")));
    EXPECT_FALSE(CDirectory::Exists(Path("file/below")));
    EXPECT_EQ(ErrorOf([&] { CDirectory::Exists(Path("file")); }, true), "17/80 Bex/CDirectory:118");
    EXPECT_EQ(ErrorOf([&] { CDirectory::Create(Path("file")); }), "17/183");
    CFile::Remove(Path("file"));
    EXPECT_EQ(ErrorOf([&] { CFile::Remove(Path("file")); }), "2/2");
}

TEST_F(FilesTest, TextFilesBufferAcrossReadingWritingAndSeeking)
{
    m_file.Open(Path("x"), TEXT_BOTH);
    const std::string strLong(40'000, 'l'); // longer than the buffer
    m_file.WriteString("one\ntwo\n");
    m_file.WriteString(strLong);
    EXPECT_EQ(m_file.Seek(0, ESeekFrom::Begin), 0);
    EXPECT_TRUE(m_file.ReadString(m_strText, 1000));
    EXPECT_STREQ(m_strText.Text(), "one\n");
    EXPECT_TRUE(m_file.ReadString(m_strText, 2));
    EXPECT_EQ(m_file.ReadChar(), 'o');
    m_file.UnreadChar('o');
    EXPECT_EQ(m_file.Tell(), 6);
    m_file.WriteString("O"); // where the reader stands, not where the buffer was filled to
    EXPECT_EQ(m_file.ReadChar(), '\n');
    std::string strRead(strLong.size() + 10, ' ');
    EXPECT_EQ(m_file.Read(strRead.data(), static_cast<uint32_t>(strRead.size())), strLong.size());
    EXPECT_TRUE(m_file.IsEOF());
    EXPECT_EQ(m_file.ReadChar(), -1);
    m_file.Seek(-1, ESeekFrom::Current);
    EXPECT_FALSE(m_file.IsEOF());
    m_file.Close();
    EXPECT_EQ(m_directory.Read("x"), "one\ntwO\n" + strLong);
    m_file.Open(Path("x"), TEXT_READ);
    EXPECT_EQ(ErrorOf([&] { m_file.WriteString("no"); }), "9/5");
}

TEST_F(FilesTest, WhatCannotBeWrittenIsToldOnceAndAtTheLatestByClose)
{
    m_file.Open(Path("x"), TEXT_BOTH | CFile::modeTruncate);
    m_file.WriteString("lost");
    const CInjectedFault full(EFault::Write, 1, ENOSPC), broken(EFault::Write, 3, EIO);
    EXPECT_EQ(ErrorOf([&] { m_file.Flush(); }), "28/112");
    m_file.WriteString("kept");
    m_file.Flush();
    m_file.WriteString("lost");
    EXPECT_EQ(ErrorOf([&] { m_file.Close(); }), "5/29");
    EXPECT_FALSE(m_file.IsOpen());
    EXPECT_EQ(m_directory.Read("x"), "kept");
    m_file.Open(Path("x"), TEXT_BOTH | CFile::modeTruncate);
    const CInjectedFault late(EFault::Close, 1, EIO);
    EXPECT_EQ(ErrorOf([&] { m_file.Close(); }), "5/29");
    EXPECT_FALSE(m_file.IsOpen());
}

TEST_F(FilesTest, LinesComeWithoutLineEnds)
{
    const std::string strLong(40'000, 'l');
    m_directory.Write("x", "crlf\r\n\n\rlone\rcr\n" + strLong + "\r\nlast");
    std::string strLines;
    m_file.Open(Path("x"), TEXT_READ);
    while (m_input.ReadLine(m_strText))
        strLines.append(m_strText.View()) += '|';
    EXPECT_EQ(strLines, "crlf||lonecr|" + strLong + "|last|");
    m_file.Open(Path("x"), CFile::typeBinary);
    EXPECT_FALSE(m_input.ReadLine(m_strText) || m_output.WriteLine("x"));
    m_file.Open(Path("empty"), TEXT_BOTH);
    EXPECT_FALSE(m_input.ReadLine(m_strText));
    EXPECT_TRUE(m_output.WriteLine("x"));
    m_file.Close();
    EXPECT_EQ(m_directory.Read("empty"), "x\n");
}

TEST_F(FilesTest, BinaryValuesComeBackAndDamagedOnesDoNot)
{
    m_file.Open(Path("x"), TEXT_BOTH);
    {
        CBufferedStreamWriter writer(m_output);
        writer.WriteInt32(INT32_MIN);
        writer.WriteDouble(-1.5);
        writer.WriteString(std::string(3000, 's'));
        writer.WriteInt32(100); // the length of a string that is not there
    }
    m_file.Seek(0, ESeekFrom::Begin);
    CBufferedStreamReader reader(m_input);
    int32_t i32 = 0;
    double d = 0;
    EXPECT_TRUE(reader.ReadInt32(i32) && reader.ReadDouble(d) && reader.ReadString(m_strText));
    EXPECT_TRUE(i32 == INT32_MIN && d == -1.5);
    EXPECT_FALSE(reader.ReadString(m_strText));
    EXPECT_EQ(m_strText.View(), std::string(3000, 's'));
    m_file.Close();
    EXPECT_EQ(m_directory.Read("x").substr(0, 17), std::string("\0\0\0\x80\x09\0\0\0-1.500000", 17));
}

TEST_F(FilesTest, ALockFileGoesWithItsObject)
{
    {
        CLockFile closed, open, moved;
        closed.Open(Path("closed"), TEXT_BOTH | CFile::shareDenyWrite);
        closed.Close();
        open.Open(Path("open"), TEXT_BOTH | CFile::shareDenyWrite);
        EXPECT_EQ(OpenError("open", TEXT_BOTH | CFile::shareDenyWrite), "13/32 Bex/CFile:150");
        m_directory.Write("before/moved", "");
        moved.Open(Path("before/moved"), TEXT_BOTH | CFile::shareDenyWrite);
        std::filesystem::rename(m_directory / "before", m_directory / "after");
        m_directory.Write("before/moved", "another's");
    }
    EXPECT_TRUE(std::filesystem::is_empty(m_directory / "after") && CFile::Exists(Path("before/moved")));
    EXPECT_TRUE(CFile::Exists(Path("closed")));
    EXPECT_FALSE(CFile::Exists(Path("open")));
}

TEST_F(FilesTest, FindsByPatternInOrder)
{
    for (const char* pszName :
         {"mails/b.eml", "mails/A.EML", "mails/c.emlx", "mails/d?.eml", "mails/.eml", "mails/e/x"})
        m_directory.Write(pszName, "12345");
    const auto found = [this](const char* pszPattern) {
        CFileFind find;
        std::string strNames;
        for (find.Open(Path(pszPattern)); find.Next();)
            strNames += std::string(find.Name()) + (find.IsDirectory() ? "/ " : " ");
        return strNames;
    };
    EXPECT_EQ(found("mails/*.eml"), ".eml A.EML b.eml d?.eml ");
    EXPECT_EQ(found("mails/*.*"), ".eml A.EML b.eml c.emlx d?.eml e/ ");
    EXPECT_EQ(found("mails/?.eml"), "A.EML b.eml ");
    CFileFind find;
    EXPECT_FALSE(find.Open(Path("missing/*")));
    const CInjectedFault first(EFault::ListDirectory, 1, EACCES);
    EXPECT_EQ(ErrorOf([&] { find.Open(Path("mails/*")); }), "13/5");
}

} // namespace
