#pragma once

#include "Bex/CArray.h"
#include "Bex/CSimpleString.h"
#include "Platform/FileIdentity.h"

/// Everything that a delivery attempt needs of a mail. A value.
struct SPreparedMail
{
    Bex::CSimpleString strSender; ///< empty: the null sender
    Bex::CSimpleString strRecipient;
    Bex::CArray<char> payload;      ///< with the end marker
    Bex::CSimpleString strIdentity; ///< who the sender was authenticated as
    Bex::CSimpleString strMessageID;
    Platform::SFileIdentity fileIdentity; ///< of the file that it was read from
};
