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
Bex::CArray<char> QuotedPrintableDecode(std::string_view text);     ///< RFC 2045 6.7; a decoded NUL is dropped
Bex::CSimpleString XtextEncode(std::string_view text);              ///< RFC 3461 4
Bex::CSimpleString HexText(const uint8_t* pBytes, uint32_t nCount); ///< lower case
