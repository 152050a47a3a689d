#pragma once

#include "Bex/CSimpleString.h"

#include <cstdint>
#include <string_view>

/// The data of DNS records, as it stands on the wire without compression (RFC 1035 3.3). False when it is malformed:
/// the result is then not changed. Any thread.
namespace Bex {

struct SMailExchange
{
    uint16_t wPreference = 0;
    CSimpleString strName;
};

/// The name in the form of master files, without a dot at its end; "." is the root. What is no plain character of a
/// label is escaped, so that the text stands for this name and no other (RFC 1035 5.1).
bool DecodeDnsName(std::string_view data, CSimpleString& strName);
bool DecodeDnsMX(std::string_view data, SMailExchange& exchange);
bool DecodeDnsTXT(std::string_view data, CSimpleString& strText); ///< its strings joined without anything between

} // namespace Bex
