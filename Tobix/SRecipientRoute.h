#pragma once

#include "Bex/CSimpleString.h"

/// Where the copy for one recipient goes, by the domains, aliases and users as they are now. A value.
struct SRecipientRoute
{
    enum class EWay {
        Mailbox,
        Outgoing,
        Nowhere ///< a local address that leads nowhere, or one that no mail can be sent to: the mail fails
    };

    EWay way = EWay::Nowhere;
    Bex::CSimpleString strTarget; ///< the user, or the address elsewhere
    bool bSentOn = false;         ///< elsewhere, by an alias: the copy is rewritten

    static SRecipientRoute Of(const Bex::CSimpleString& strRecipient);
};
