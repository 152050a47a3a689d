// Reads any bytes as a reply, whole and cut at places that the bytes themselves choose: both see the same reply. Taken
// as several replies it is the same text.

#include "Check.h"
#include "SMTPc/CReplyReader.h"

#include <algorithm>
#include <cstdint>
#include <string>

using EState = CReplyReader::EState;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pBytes, size_t nSize)
{
    const std::string_view text(reinterpret_cast<const char*>(pBytes), nSize);
    CReplyReader whole;
    const EState state = whole.Take(text);
    CReplyReader cut;
    EState last = EState::Incomplete;
    for (size_t n = 0; n < text.size() && last != EState::TooLong;) {
        const size_t nPiece = std::min<size_t>(text.size() - n, pBytes[n] % 16u + 1u);
        last = cut.Take(text.substr(n, nPiece));
        n += nPiece;
    }
    Check(state == last);
    if (state != EState::TooLong)
        Check(whole.Text() == cut.Text() && whole.LastLine() == cut.LastLine() && whole.Code() == cut.Code());
    std::string strOneByOne;
    for (std::string_view rest = text; !rest.empty();) {
        CReplyReader one;
        one.TakeOne(rest);
        strOneByOne += one.Text();
    }
    Check(state != EState::Complete || strOneByOne == whole.Text());
    if (state == EState::Complete)
        Check(whole.Code() > 0 && whole.Text().ends_with('\n') && whole.Text().find('\0') == std::string::npos);
    Check(whole.Text().size() <= CReplyReader::MOST_BYTES + CReplyReader::MOST_LINES);
    return 0;
}
