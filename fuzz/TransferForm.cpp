// Sends any bytes as header block and body: what a server reads ends where the transfer ends, and undoing the dots
// gives a body back that is not in transfer form.

#include "SMTPc/TransferForm.h"
#include "Check.h"

#include <cstdint>
#include <string>

namespace {

constexpr std::string_view END_OF_DATA = "\r\n.\r\n";

bool HasBareEnds(std::string_view text)
{
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r' && text.substr(i, 2) != "\r\n")
            return true;
        if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r'))
            return true;
    }
    return false;
}

/// Line by line as a server does it (RFC 5321 4.5.2).
std::string AsReceived(std::string_view payload)
{
    std::string strText;
    for (;;) {
        const size_t nEnd = payload.find("\r\n");
        Check(nEnd != std::string_view::npos);
        std::string_view line = payload.substr(0, nEnd);
        payload.remove_prefix(nEnd + 2);
        if (line == ".") {
            Check(payload.empty());
            return strText;
        }
        if (line.starts_with('.'))
            line.remove_prefix(1);
        strText += line;
        strText += "\r\n";
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pBytes, size_t nSize)
{
    const std::string_view text(reinterpret_cast<const char*>(pBytes), nSize);
    const size_t nHeader = nSize == 0 ? 0 : pBytes[0] % nSize;
    const Bex::CArray<char> payload =
        TransferForm(std::string(text.substr(0, nHeader)), Bex::CArray<char>(text.substr(nHeader)));
    Check(payload.View().ends_with(END_OF_DATA));
    Check(!HasBareEnds(payload.View()));
    AsReceived(payload.View());

    std::string strPlain = "\r\n.x\r\n"; // tells the body from one in transfer form
    for (char c : text) {
        if (c != '\0' && c != '\r')
            strPlain += c == '\n' ? "\r\n" : std::string(1, c);
    }
    if (!strPlain.ends_with(END_OF_DATA))
        Check(AsReceived(TransferForm("A: b\r\n", Bex::CArray<char>(strPlain)).View()) ==
              "A: b\r\n" + strPlain + "\r\n");
    return 0;
}
