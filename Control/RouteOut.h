#pragma once

#include "Common/CMail.h"
#include "Control/CRouteAnswer.h"
#include "Tobix/SRecipientRoute.h"

/// The part of a route that leads to another host: how the mail is rewritten, and which servers are tried.
void TellWayOut(const CMail& mail, const Bex::CSimpleString& strRecipient, const SRecipientRoute& route,
                CRouteAnswer& answer);
