#pragma once

#include "Bex/CArray.h"
#include "Bex/CSimpleString.h"

/// Everything that a session needs of a mail. A value.
struct SPreparedMail
{
    Bex::CSimpleString strSender; ///< empty: the null sender
    Bex::CSimpleString strRecipient;
    Bex::CArray<char> payload; ///< with the end marker
    Bex::CSimpleString strIdentity;
    Bex::CSimpleString strMessageID;
};
