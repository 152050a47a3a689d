#pragma once

#include <memory>
#include <string_view>

/// A text of a mail without its transfer encoding, piece by piece: a large one is never in memory a second time.
///
/// Refers to the text, in which there is no NUL. Used by one thread.
class CTextPieces
{
public:
    /// Content-Transfer-Encoding: base64 and quoted-printable, whatever the case; with any other the text is plain.
    explicit CTextPieces(std::string_view text, std::string_view encoding = {});

    static constexpr size_t LONGEST_PIECE = 65536;
    bool Next(std::string_view& piece); ///< valid until the next call; false at the end

private:
    using Decoder = char* (*)(std::string_view& text, char* pOut, const char* pEnd);

    std::string_view m_rest;
    Decoder m_decode = nullptr;
    std::unique_ptr<char[]> m_pPiece; ///< of a text that has to be decoded
};
