#pragma once

#include "Bex/CException.h"
#include "Common/CMail.h"
#include "Tobix/ERouted.h"

#include <exception>

/// The log lines about one mail that several rooms of the daemon write. Main log; any thread.
namespace MailLog {

/// "error in <file>:<line>, errno=.. file=.. msgid=.. from=.. to=..", with the error of the write; says what follows
/// for the recipient. What is only busy is told of the queue file, once.
ERouted NotSaved(const CMail& mail, const Bex::CSimpleString& strPath, Platform::SError error, int iLine);
void SavedInOutgoing(const CMail& mail);
void SavedInMailbox(const CMail& mail, const Bex::CSimpleString& strUser);
void Filtered(const CMail& mail, const Bex::CSimpleString& strReason);
void RecipientNotValid(const CMail& mail);
void GoesRound(const CMail& mail, int iMostReceived);
void InterceptionFailed(const CMail& mail);
/// A mail file whose delivery ended with an exception that nothing is prescribed for.
void DeliveryRaised(const Bex::CSimpleString& strPath, const Bex::CException& exception);
void DeliveryRaised(const Bex::CSimpleString& strPath, const std::exception& exception);
void PlacedInError(const Bex::CSimpleString& strName); ///< of a queue file
/// Somebody is at the file, or there was not the memory to read it.
void Busy(const Bex::CSimpleString& strPath, bool bNoMemory);

} // namespace MailLog
