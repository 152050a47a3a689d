#pragma once

#include "Bex/CList.h"
#include "Bex/CSimpleString.h"
#include "Bex/CSocketEndPoint.h"

/// What a session does about TLS.
enum class ETLSMode : uint32_t {
    None = 0,
    Opportunistic = 1, ///< STARTTLS when offered; after a TLS or socket failure the host is tried again without
    Offered = 2,       ///< STARTTLS when offered, without that second try
    Direct = 3         ///< from the first byte
};

/// One host that a mail may be handed to. A value.
struct CSmartHost
{
    Bex::CSimpleString strHostName; ///< may be empty
    Bex::CSocketEndPoint endPoint;
    Bex::CSimpleString strUser;
    Bex::CSimpleString strPassword;
    ETLSMode mode = ETLSMode::Opportunistic;
    bool bSecondTry = false; ///< after a failure, without the TLS that other mail for it begins with
};

using CTargetList = Bex::CList<CSmartHost>;
