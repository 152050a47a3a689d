#pragma once

#include "Common/CSmartHost.h"
#include "SMTPc/CSMTPClient.h"

/// Its address and port, such as hosts are remembered by; empty without an address.
Bex::CSimpleString PlaceOf(const CSmartHost& target);

/// A connection to a host that has greeted us, secured and logged in as the target that it was opened for wants it. It
/// carries one mail after the other: a session (CSMTPSession) has it for its mail, and whoever owned that one may hand
/// it to the next. Used by one thread at a time.
struct CSMTPConnection
{
    explicit CSMTPConnection(CSmartHost opened) : target(std::move(opened)) {}

    /// Who asks for the other target would get this connection, with this certificate checked and this log-in.
    bool Reaches(const CSmartHost& other) const;
    void Quit(); ///< and closes; raises what the client raises, and waits as long as the client may

    CSMTPClient client;
    const CSmartHost target;
    unsigned nMails = 0; ///< that it has carried, whatever came of them
    bool bReset = false; ///< the last one was refused, which the host has to forget
};
