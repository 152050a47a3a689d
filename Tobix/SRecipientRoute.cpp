#include "Tobix/SRecipientRoute.h"

#include "Common/Globals.h"
#include "Common/IsValidAddress.h"

SRecipientRoute SRecipientRoute::Of(const Bex::CSimpleString& strRecipient)
{
    SRecipientRoute route;
    route.strTarget = IsLocalAddress(strRecipient) ? Aliases().ResolveRecipient(strRecipient.Lowered()) : strRecipient;
    if (IsLocalAddress(route.strTarget))
        route.way = EWay::Mailbox;
    else if (IsValidAddress(route.strTarget))
        route.way = EWay::Outgoing;
    route.bSentOn = route.way == EWay::Outgoing && !route.strTarget.EqualsNoCase(strRecipient);
    return route;
}
