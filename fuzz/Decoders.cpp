// Decodes any bytes, and takes back what was encoded. Run with -close_fd_mask=2: the decoder tells of each text that
// ends too early.

#include "Check.h"
#include "Common/Encodings.h"

#include <string>

namespace {

/// What xtext means (RFC 3461 4).
std::string XtextDecode(std::string_view text)
{
    std::string strDecoded;
    for (size_t i = 0; i < text.size(); ++i) {
        Check(text[i] >= '!' && text[i] <= '~' && text[i] != '=');
        if (text[i] != '+') {
            strDecoded += text[i];
            continue;
        }
        strDecoded += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
        i += 2;
    }
    return strDecoded;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pBytes, size_t nSize)
{
    const std::string_view bytes(reinterpret_cast<const char*>(pBytes), nSize);
    const std::string_view text = bytes.substr(0, bytes.find('\0'));
    Check(QuotedPrintableDecode(bytes).Size() <= text.size());
    Check(Base64Decode(bytes).Size() <= text.size() / 4 * 3);
    Check(XtextDecode(XtextEncode(bytes)) == text);
    const Bex::CArray<char> encoded = Base64Encode(pBytes, static_cast<uint32_t>(nSize));
    Check(encoded.Size() == (nSize + 2) / 3 * 4);
    Check(Base64Decode(encoded.View()).View() == text);
    return 0;
}
