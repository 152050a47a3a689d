#pragma once

#include "Common/CSmartHost.h"

#include <string_view>

/// One host of a smart host table's value: [user[:password]@]host[:port[s|t|i]].
struct SSmartHostEntry
{
    Bex::CSimpleString strHost; ///< without the brackets of an IPv6 address
    uint16_t wPort = 25;
    Bex::CSimpleString strUser;
    Bex::CSimpleString strPassword;
    ETLSMode mode = ETLSMode::Opportunistic; ///< as written, whether or not there are credentials
    Bex::CSimpleString strPort;              ///< the port as written, with what follows it
};

/// Takes any text: what is malformed is read as far as it goes. Any thread.
SSmartHostEntry ParseSmartHostEntry(std::string_view text);
