#pragma once

#include "Bex/CArray.h"
#include "Bex/CSimpleString.h"

#include <cstdint>
#include <string_view>

/// Transfer encodings of mail text. Stateless, any thread; none of them fails on bad input.

/// Base64 without line breaks (RFC 4648 4).
Bex::CArray<char> Base64Encode(const void* pBytes, uint32_t nLength);
Bex::CSimpleString Base64Encode(const Bex::CSimpleString& strText);
/// Skips white space; the result ends at the first NUL that is decoded.
Bex::CArray<char> Base64Decode(std::string_view text);
Bex::CArray<char> QuotedPrintableDecode(std::string_view text); ///< RFC 2045 6.7; a decoded NUL is dropped
/// The same, a piece at a time: decodes from the start of the text, which loses what was decoded and is empty in the
/// end, until there is no room (of at least three bytes) for more. Gives the end of the piece.
char* Base64Decode(std::string_view& text, char* pOut, const char* pEnd);
char* QuotedPrintableDecode(std::string_view& text, char* pOut, const char* pEnd);
Bex::CSimpleString XtextEncode(std::string_view text);              ///< RFC 3461 4
Bex::CSimpleString HexText(const uint8_t* pBytes, uint32_t nCount); ///< lower case
