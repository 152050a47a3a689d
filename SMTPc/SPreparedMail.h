#pragma once

#include "Bex/CArray.h"
#include "Bex/CSimpleString.h"

class CHeldMailFile;

/// Everything that a delivery attempt needs of a mail.
struct SPreparedMail
{
    Bex::CSimpleString strSender; ///< empty: the null sender
    Bex::CSimpleString strRecipient;
    Bex::CArray<char> payload;      ///< with the end marker
    Bex::CSimpleString strIdentity; ///< who the sender was authenticated as
    Bex::CSimpleString strMessageID;
    bool bAhead = false;            ///< its envelope went behind the mail before, over the connection that is open
    CHeldMailFile* pFile = nullptr; ///< that it was read from, which outlives it
};
