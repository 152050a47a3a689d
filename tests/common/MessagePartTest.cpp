#include "Common/CMessagePart.h"
#include "Common/CTextPieces.h"
#include "support/CLogRecorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <string>
#include <vector>

using namespace std::string_view_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> ExtraLines(const CMessagePart& part)
{
    std::vector<std::string> lines;
    for (const Bex::CSimpleString& strLine : part.ExtraHeaderLines())
        lines.emplace_back(strLine.View());
    return lines;
}

TEST(MessagePart, TakesTheParametersOfContentHeaders)
{
    // one after the other, to boundary, character set, name
    const std::pair<const char*, const char*> TYPES[] = {
        {"text/plain; charset=\"UTF-8\"; NAME=a b.txt", "|UTF-8|a b.txt"},
        {"text/html", "|UTF-8|a b.txt"}, // what is not given stays
        {"MULTIPART/mixed; xBOUNDARY=\"B1\"; charset=x; name=y", "B1|UTF-8|a b.txt"},
        {"multipart/mixed; boundary=\"a;b\"", "\"a|UTF-8|a b.txt"}, // cut inside the quotes
        {"multipart/mixed; boundary=\"a\r\n\tb\"", "a\tb|UTF-8|a b.txt"}};
    CMessagePart part;
    for (const auto& [pszType, pszParameters] : TYPES) {
        part.SetContentType(pszType);
        EXPECT_EQ(part.ContentType(), pszType);
        EXPECT_EQ(Bex::CSimpleString::Formatted("%s|%s|%s", part.Boundary().Text(), part.Charset().Text(),
                                                part.Name().Text()),
                  pszParameters);
    }
    part.SetContentDisposition("inline; filename=a");
    EXPECT_EQ(part.FileName().View(), "");
    part.SetContentDisposition("ATTACHMENT; FileName=\"A.b\"; size=1");
    EXPECT_EQ(part.FileName().View(), "A.b");
    part.SetContentDisposition("attach");
    EXPECT_EQ(part.Disposition().View(), "attach");
}

TEST(MessagePart, KeepsOtherHeadersAsLinesInOrder)
{
    CMessagePart part;
    EXPECT_EQ(part.ParseHeaderLine("X-A:  1 : 2 \t"), 1);
    EXPECT_EQ(part.ParseHeaderLine("no colon"), 0);
    for (const char* pszLine : {" x-b :", "X-A: 3", ":4", "content-TYPE:text/a", "Content-Type: text/b",
                                "Content-Transfer-Encoding: 7bit", "Content-Language: de", "Content-Description: d"})
        EXPECT_EQ(part.ParseHeaderLine(pszLine), 1);
    EXPECT_THAT(ExtraLines(part), ElementsAre("X-A: 1 : 2", "x-b: ", "X-A: 3", ": 4"));
    EXPECT_EQ(part.ContentType().View(), "text/b");
    EXPECT_EQ(part.FindHeaderLine("X-A").View(), "X-A: 1 : 2");
    EXPECT_EQ(part.FindHeaderLine("X-a").View(), "");
    EXPECT_EQ(part.FindHeaderLine("X-").View(), "");

    CMessagePart copy(part);
    copy.ExtraHeaderLines().RemoveEqual("X-A: 3");
    EXPECT_EQ(ExtraLines(part).size(), 4u);
    EXPECT_EQ(copy.Language().View(), "de");
    EXPECT_EQ(copy.Description().View(), "d");
}

TEST(MessagePart, ParsesHeaderBlockAndBody)
{
    CMessagePart part;
    ASSERT_TRUE(part.Parse("A: 1\r\n 2\r\n\t3\r\nb\rB: 4\nc\r\n \r\n\r\nx\ny"));
    EXPECT_THAT(ExtraLines(part), ElementsAre("A: 1\r\n 2\r\n\t3", "b\rB: 4\nc"));
    EXPECT_EQ(part.Body().View(), "x\r\ny");
    EXPECT_TRUE(CMessagePart().Parse("\r\nx"));
    for (const char* pszText : {"", "A: 1", "A: 1\r\n", "A: 1\r\n\r\n", "A: 1\n\nbody", "\r\n", "A: 1\r\n \r\nx"})
        EXPECT_FALSE(CMessagePart().Parse(pszText)) << pszText;
}

TEST(LineEndings, BecomeCRLFWhereverTheyStand)
{
    for (unsigned nPattern = 0; nPattern < 4096; ++nPattern) {
        std::string strText;
        for (unsigned nRest = nPattern, i = 0; i < 6; ++i, nRest /= 4)
            strText += "a\r\n\0"[nRest % 4];
        std::string strExpected;
        for (char cBefore = 'a'; const char c : strText) {
            if (c == '\r' || (c == '\n' && cBefore != '\r'))
                strExpected += "\r\n";
            else if (c == 'a')
                strExpected += c;
            cBefore = c;
        }
        for (size_t nPadding : {0, 125, 255}) { // around the runs in which bytes are counted
            CMessagePart part;
            ASSERT_TRUE(part.Parse("\r\n" + std::string(nPadding, 'x') + strText));
            ASSERT_EQ(part.Body().View(), std::string(nPadding, 'x') + strExpected) << nPattern;
        }
    }
}

/// Searches a multipart body and gives the texts that were looked at; one that holds "phrase" ends the search.
struct SSearch
{
    std::vector<std::string> texts;
    bool bFound = false;
    Bex::CSimpleString strPhrase;
    size_t nHeap = 0; ///< in use when the first one was looked at

    SSearch(const std::string& strBody, const std::string& strContentType = "multipart/mixed; boundary=b",
            const std::string& strEncoding = "")
    {
        CMessagePart entity;
        EXPECT_TRUE(entity.Parse("Content-Type: " + strContentType + "\r\nContent-Transfer-Encoding: " + strEncoding +
                                 "\r\n\r\n" + strBody));
        bFound = CMessagePart::SearchTextParts(entity, Look, this, strPhrase);
    }
    static bool Look(void* pContext, CTextPieces& text, Bex::CSimpleString& strFound)
    {
        auto& self = *static_cast<SSearch*>(pContext);
        self.texts.emplace_back();
        for (std::string_view piece; text.Next(piece);)
            self.texts.back() += piece;
        if (self.nHeap == 0) // to ask takes long when much of the heap is free
            self.nHeap = mallinfo2().uordblks;
        strFound = "phrase";
        return self.texts.back().find("phrase") != std::string::npos;
    }
};

std::string Part(const std::string& strText) { return "--b\r\nContent-Type: text/plain\r\n\r\n" + strText + "\r\n"; }

std::string Repeated(unsigned nCount, const std::string& strText)
{
    std::string strAll;
    while (nCount-- > 0)
        strAll += strText;
    return strAll;
}

TEST(MimeSearch, LooksAtTextPartsOnly)
{
    EXPECT_THAT(SSearch("one", "text/plain").texts, ElementsAre("one"));
    EXPECT_THAT(SSearch("one", "Text/plain").texts, IsEmpty());
    EXPECT_THAT(SSearch("one", "").texts, IsEmpty());
    EXPECT_THAT(SSearch("one", "multipart/mixed").texts, IsEmpty());
    EXPECT_THAT(SSearch("b25l", "text/plain", "BASE64").texts, ElementsAre("one"));
    EXPECT_THAT(SSearch("=6Fne", "text/html", "Quoted-Printable").texts, ElementsAre("one"));
    EXPECT_THAT(SSearch("=6Fne", "text/html", "8bit").texts, ElementsAre("=6Fne"));
    const SSearch all("phrase\r\n" + Part("one") + "--b\r\nContent-Type: image/png\r\n\r\nphrase\r\n" + Part("two") +
                      "--b--\r\nphrase\r\n");
    EXPECT_THAT(all.texts, ElementsAre("one", "two"));
    EXPECT_FALSE(all.bFound);
    const SSearch found(Part("one") + Part("a phrase") + Part("three") + "--b--\r\n");
    EXPECT_THAT(found.texts, ElementsAre("one", "a phrase"));
    EXPECT_TRUE(found.bFound);
    EXPECT_EQ(found.strPhrase.View(), "phrase");
}

TEST(MimeSearch, EndsWhereTheStructureDoes)
{
    EXPECT_THAT(SSearch(Part("one") + "--b\r\nno blank line\r\n" + Part("two") + "--b--\r\n").texts,
                ElementsAre("one"));
    EXPECT_THAT(SSearch(Part("one") + "--b\r\nA: 1\r\n\r\n\r\n" + Part("two") + "--b--\r\n").texts,
                ElementsAre("one")); // no byte behind the blank line
    EXPECT_THAT(SSearch(Part("one") + Part("not closed")).texts, ElementsAre("one"));
    EXPECT_THAT(SSearch(Part("one") + "--b").texts, ElementsAre("one"));
    EXPECT_THAT(SSearch("--b--b--b--b\r\n").texts, IsEmpty());
    EXPECT_THAT(SSearch("--b\r\nA: 1\r\nContent-Type: text/a\r\n\r\none--b mid-line --b\r\n").texts, ElementsAre("o"));
    // Cut between CR and LF: what remains of the line break is made whole again.
    EXPECT_THAT(SSearch("--b\r\nContent-Type: text/a\r\n\r\none\r\n.--b--\r\n").texts, ElementsAre("one\r\n"));
}

std::string Nested(unsigned nDepth, unsigned nDelimiters, unsigned nLevel = 1000)
{
    const std::string strDelimiter = "--b" + std::to_string(nLevel);
    const std::string strInner = nDepth == 1
                                     ? "Content-Type: text/plain\r\n\r\ninnermost\r\n"
                                     : "Content-Type: multipart/mixed; boundary=b" + std::to_string(nLevel + 1) +
                                           "\r\n\r\n" + Nested(nDepth - 1, nDelimiters, nLevel + 1);
    return Repeated(nDelimiters, strDelimiter + "\r\n") + strInner + strDelimiter + "--\r\n";
}

TEST(MimeSearch, TakesBoundedWork)
{
    constexpr char OUTER[] = "multipart/mixed; boundary=b1000";
    EXPECT_THAT(SSearch(Nested(100, 1), OUTER).texts, ElementsAre("innermost"));
    const CLogRecorder log;
    EXPECT_THAT(SSearch(Nested(101, 1), OUTER).texts, IsEmpty());
    std::string strLarge = Nested(100, 1); // on each level all of it, and nearly a delimiter everywhere
    strLarge.insert(strLarge.find("innermost"), 8 << 20, '-');
    EXPECT_THAT(SSearch(strLarge, OUTER).texts, IsEmpty());
    EXPECT_EQ(log.Lines().size(), 2u);
    EXPECT_THAT(SSearch(Nested(60, 2), OUTER).texts, ElementsAre("innermost", "innermost")); // not 2 to the 60th
    EXPECT_EQ(SSearch(Repeated(100000, Part("text")) + "--b--\r\n").texts.size(), 100000u);
    // Delimiters that nearly match everywhere.
    const std::string strLong(1 << 20, '-');
    EXPECT_THAT(SSearch(strLong, "multipart/mixed; boundary=" + strLong.substr(0, 1 << 19) + "x").texts, IsEmpty());
    // A part's header lines are not kept while its text is looked at.
    const std::string strLines = "--b\r\nContent-Type: text/plain\r\n" + Repeated(100000, ":\r\n") + "\r\nx\r\n--b--";
    const size_t nBefore = mallinfo2().uordblks;
    EXPECT_LT(SSearch(strLines).nHeap, nBefore + 1'000'000);
    // Every line of a header folded.
    const std::string strFolded = "multipart/mixed; boundary=" + Repeated(100000, std::string(100, 'y') + "\r\n\t");
    EXPECT_THAT(SSearch("x", strFolded).texts, IsEmpty());
}

} // namespace
