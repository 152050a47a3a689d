#include "SMTPc/CReplyReader.h"
#include "SMTPc/TransferForm.h"

#include <gtest/gtest.h>
#include <string>

using EState = CReplyReader::EState;

struct ReplyCase
{
    std::string_view reply;
    EState state;
    int iCode;
};
class ReplyReaderTest : public testing::TestWithParam<ReplyCase>
{};
TEST_P(ReplyReaderTest, KnowsACompleteReplyHoweverItIsCut)
{
    const ReplyCase& tried = GetParam();
    CReplyReader whole;
    EXPECT_EQ(whole.Take(tried.reply), tried.state);
    EXPECT_EQ(whole.Code(), tried.iCode);
    CReplyReader cut;
    EState state = EState::Incomplete;
    for (char c : tried.reply) {
        if (state != EState::Complete)
            state = cut.Take({&c, 1});
    }
    EXPECT_EQ(state, tried.state);
    EXPECT_EQ(cut.Text(), whole.Text());
}
INSTANTIATE_TEST_SUITE_P(
    Replies, ReplyReaderTest,
    testing::Values(ReplyCase{"250 ok\r\n", EState::Complete, 250}, ReplyCase{"250\n", EState::Complete, 250},
                    ReplyCase{"250-a\r\n250-b\r\n\r\n250 c\r\n", EState::Complete, 250},
                    ReplyCase{"\r\n250-a\n354 b\n", EState::Complete, 250}, // the first line's code counts
                    ReplyCase{{"2\0"
                               "50 ok\r\n",
                               9},
                              EState::Complete,
                              250},
                    ReplyCase{"250-a\r\n", EState::Incomplete, 250}, ReplyCase{"250 ok", EState::Incomplete, 0},
                    ReplyCase{"25\r\n", EState::Incomplete, 25}, ReplyCase{"", EState::Incomplete, 0},
                    ReplyCase{"hello\r\n250 ok\r\n", EState::Incomplete, 0},
                    ReplyCase{"+250 ok\r\n", EState::Incomplete, 0}, ReplyCase{"000 ok\r\n", EState::Incomplete, 0}));

TEST(ReplyReaderTest, RefusesWhatHasNoEnd)
{
    CReplyReader lines;
    for (size_t i = 0; i < CReplyReader::MOST_LINES; ++i)
        ASSERT_EQ(lines.Take("250-x\r\n"), EState::Incomplete);
    EXPECT_EQ(lines.Take("250 x\r\n"), EState::TooLong);
    EXPECT_EQ(CReplyReader().Take(std::string(CReplyReader::MOST_BYTES + 1, '\n')), EState::TooLong);
}

struct TransferCase
{
    std::string_view header;
    std::string_view body;
    std::string_view sent; ///< without the end marker
};
class TransferFormTest : public testing::TestWithParam<TransferCase>
{};
TEST_P(TransferFormTest, EndsWhereTheMailEndsAndNowhereElse)
{
    const Bex::CArray<char> payload = TransferForm(GetParam().header, GetParam().body);
    EXPECT_EQ(payload.View(), std::string(GetParam().sent) + "\r\n.\r\n");
}
INSTANTIATE_TEST_SUITE_P(
    Payloads, TransferFormTest,
    testing::Values(
        TransferCase{"A: b\r\n\r\n", "text\r\n", "A: b\r\n\r\ntext\r\n"},
        TransferCase{"A: b\r\n\r\n", "text\r\n.\r\n", "A: b\r\n\r\ntext"},            // not ended twice
        TransferCase{"A: b\r\n\r\n", ".\r\n", "A: b\r\n"},                            // nor across the blank line
        TransferCase{"A: b\r\n\r\n", "..\r\n...x\r\n", "A: b\r\n\r\n..\r\n...x\r\n"}, // in transfer form
        TransferCase{"A: b\r\n\r\n", "..a\r\n.\r\nQUIT\r\n", "A: b\r\n\r\n..a\r\n..\r\nQUIT\r\n"},
        TransferCase{"A: b\r\n\r\n", "a\r\n.", "A: b\r\n\r\na\r\n.."},
        TransferCase{"A: b\r\n\r\n", "..a\r\n.b\r\n.\r\n.\r\n", "A: b\r\n\r\n...a\r\n..b\r\n.."}, // plain text
        TransferCase{".A: b\r\n\r\n", "..a\r\n", "..A: b\r\n\r\n..a\r\n"},
        TransferCase{"A: b\rC: d\n.\nE\r\n\r\n", "a\n.\nb\r.\rc", "A: b C: d . E\r\n\r\na\r\n..\r\nb\r\n..\r\nc"},
        TransferCase{"", "", ""}, TransferCase{"A: b\r\n\r\n", "", "A: b\r\n\r\n"}));
