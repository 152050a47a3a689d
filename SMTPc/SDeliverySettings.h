#pragma once

#include "Bex/CSimpleString.h"

#include <cstdint>

/// How mail leaves; read once from the configuration. A value.
struct SDeliverySettings
{
    Bex::CSimpleString strHelloName; ///< empty: the name of this end of the connection
    Bex::CSimpleString strInterface; ///< local address for IPv4, and for IPv6 while the next one is empty
    Bex::CSimpleString strInterface6;
    bool bUseTls = false;
    bool bLowerRecipientDomain = false;
    uint32_t dwProtocols = 0;
    uint32_t dwTimeout = 0;      ///< seconds, 60 to 1200
    uint32_t dwSessionLimit = 0; ///< seconds for a whole session, besides what its payload needs
    uint32_t dwSilenceKept = 0;  ///< seconds for which an address that did not answer is tried after others
    unsigned nMailsPerConnection = 1;
    bool bPipelining = false;
    int iDebugLevel = 0;

    static SDeliverySettings FromConfiguration();
};
