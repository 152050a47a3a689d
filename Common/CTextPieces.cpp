#include "Common/CTextPieces.h"

#include "Bex/TextFunctions.h"
#include "Common/Encodings.h"

CTextPieces::CTextPieces(std::string_view text, std::string_view encoding) : m_rest(text)
{
    if (Bex::EqualNoCase(encoding, "base64"))
        m_decode = Base64Decode;
    else if (Bex::EqualNoCase(encoding, "quoted-printable"))
        m_decode = QuotedPrintableDecode;
    if (m_decode != nullptr)
        m_pPiece = std::make_unique_for_overwrite<char[]>(LONGEST_PIECE);
}

bool CTextPieces::Next(std::string_view& piece)
{
    if (m_decode == nullptr) {
        piece = m_rest.substr(0, LONGEST_PIECE);
        m_rest.remove_prefix(piece.size());
    } else {
        char* const pPiece = m_pPiece.get();
        piece = {pPiece, static_cast<size_t>(m_decode(m_rest, pPiece, pPiece + LONGEST_PIECE) - pPiece)};
    }
    return !piece.empty();
}
