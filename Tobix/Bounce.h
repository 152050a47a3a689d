#pragma once

#include "Bex/CSimpleString.h"

/// Ends an abandoned mail: hands the file and its error report to the automatic responder, which tells the sender and
/// disposes of both, or deletes them when bounces are disabled. False when the mail is to go to the error directory.
/// Waits for the responder. Any thread.
bool Bounce(const Bex::CSimpleString& strMailPath, const Bex::CSimpleString& strErrorDirectory);
