#include "Bex/CBufferedStreamReader.h"
#include "Bex/CBufferedStreamWriter.h"
#include "Bex/CDirectory.h"
#include "Bex/CFileException.h"
#include "Bex/CFileFind.h"
#include "Bex/CLockFile.h"
#include "Bex/CTextFile.h"
#include "Platform/FaultInjection.h"
#include "support/CLogRecorder.h"
#include "support/CTemporaryDirectory.h"

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace Bex;
using Platform::ESeekFrom;

namespace {

constexpr uint32_t TEXT_READ = CFile::typeText | CFile::modeRead | CFile::shareDenyWrite;
constexpr uint32_t TEXT_WRITE =
    CFile::typeText | CFile::modeWrite | CFile::modeCreate | CFile::modeTruncate | CFile::shareExclusive;
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
    CTextFile file;
    file.Open(Path("x"), TEXT_BOTH);
    const std::string strLong(40'000, 'l'); // longer than the buffer
    file.WriteString("one\ntwo\n");
    file.WriteString(strLong);
    EXPECT_EQ(file.Seek(0, ESeekFrom::Begin), 0);
    CSimpleString strText;
    EXPECT_TRUE(file.ReadString(strText, 1000));
    EXPECT_STREQ(strText.Text(), "one\n");
    EXPECT_TRUE(file.ReadString(strText, 2));
    EXPECT_EQ(file.ReadChar(), 'o');
    file.UnreadChar('o');
    EXPECT_EQ(file.Tell(), 6);
    file.WriteString("O"); // where the reader stands, not where the buffer was filled to
    EXPECT_EQ(file.ReadChar(), '\n');
    std::string strRead(strLong.size() + 10, ' ');
    EXPECT_EQ(file.Read(strRead.data(), static_cast<uint32_t>(strRead.size())), strLong.size());
    EXPECT_TRUE(file.IsEOF());
    EXPECT_EQ(file.ReadChar(), -1);
    file.Seek(-1, ESeekFrom::Current);
    EXPECT_FALSE(file.IsEOF());
    file.Close();
    EXPECT_EQ(m_directory.Read("x"), "one\ntwO\n" + strLong);
    file.Open(Path("x"), TEXT_READ);
    EXPECT_EQ(ErrorOf([&] { file.WriteString("no"); }), "9/5");
}

TEST_F(FilesTest, WhatCannotBeWrittenIsToldOnceAndAtTheLatestByClose)
{
    CTextFile file;
    file.Open(Path("x"), TEXT_WRITE);
    file.WriteString("lost");
    const Platform::CInjectedFault full(Platform::EFault::Write, 1, ENOSPC), broken(Platform::EFault::Write, 3, EIO);
    EXPECT_EQ(ErrorOf([&] { file.Flush(); }), "28/112");
    file.WriteString("kept");
    file.Flush();
    file.WriteString("lost");
    EXPECT_EQ(ErrorOf([&] { file.Close(); }), "5/29");
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(m_directory.Read("x"), "kept");
    file.Open(Path("x"), TEXT_WRITE);
    const Platform::CInjectedFault late(Platform::EFault::Close, 1, EIO);
    EXPECT_EQ(ErrorOf([&] { file.Close(); }), "5/29");
    EXPECT_FALSE(file.IsOpen());
}

TEST_F(FilesTest, LinesComeWithoutLineEnds)
{
    const std::string strLong(40'000, 'l');
    m_directory.Write("x", "crlf\r\n\n\rlone\rcr\n" + strLong + "\r\nlast");
    CTextFile file;
    CFileInputStream lines(file);
    CFileOutputStream output(file);
    CSimpleString strLine;
    std::string strLines;
    file.Open(Path("x"), TEXT_READ);
    while (lines.ReadLine(strLine))
        strLines.append(strLine.View()) += '|';
    EXPECT_EQ(strLines, "crlf||lonecr|" + strLong + "|last|");
    file.Open(Path("x"), CFile::typeBinary);
    EXPECT_FALSE(lines.ReadLine(strLine) || output.WriteLine("x"));
    file.Open(Path("empty"), TEXT_BOTH);
    EXPECT_FALSE(lines.ReadLine(strLine));
    EXPECT_TRUE(output.WriteLine("x"));
    file.Close();
    EXPECT_EQ(m_directory.Read("empty"), "x\n");
}

TEST_F(FilesTest, BinaryValuesComeBackAndDamagedOnesDoNot)
{
    CTextFile file;
    file.Open(Path("x"), TEXT_BOTH);
    CFileOutputStream output(file);
    {
        CBufferedStreamWriter writer(output);
        writer.WriteInt32(INT32_MIN);
        writer.WriteDouble(-1.5);
        writer.WriteString(std::string(3000, 's'));
        writer.WriteInt32(100); // the length of a string that is not there
    }
    file.Seek(0, ESeekFrom::Begin);
    CFileInputStream input(file);
    CBufferedStreamReader reader(input);
    int32_t i32 = 0;
    double d = 0;
    CSimpleString strText;
    EXPECT_TRUE(reader.ReadInt32(i32) && reader.ReadDouble(d) && reader.ReadString(strText));
    EXPECT_TRUE(i32 == INT32_MIN && d == -1.5);
    EXPECT_FALSE(reader.ReadString(strText));
    EXPECT_EQ(strText.View(), std::string(3000, 's'));
    file.Close();
    EXPECT_EQ(m_directory.Read("x").substr(0, 17), std::string("\0\0\0\x80\x09\0\0\0-1.500000", 17));
}

TEST_F(FilesTest, ALockFileGoesWithItsObject)
{
    {
        CLockFile closed, open;
        closed.Open(Path("closed"), TEXT_BOTH | CFile::shareDenyWrite);
        closed.Close();
        open.Open(Path("open"), TEXT_BOTH | CFile::shareDenyWrite);
        EXPECT_EQ(OpenError("open", TEXT_BOTH | CFile::shareDenyWrite), "13/32 Bex/CFile:150");
    }
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
    const Platform::CInjectedFault first(Platform::EFault::ListDirectory, 1, EACCES);
    EXPECT_EQ(ErrorOf([&] { find.Open(Path("mails/*")); }), "13/5");
}

} // namespace
