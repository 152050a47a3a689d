#pragma once

#include "Bex/CSimpleString.h"
#include "Common/CHeldMailFile.h"

/// Ends an abandoned mail: hands the file and its error report to the automatic responder, which tells the sender and
/// disposes of both, or deletes them when bounces are disabled. False when the mail is to go to the error directory.
/// Another mail that stands under the name by now stays, which counts as done. Waits for the responder;
/// CSystemException when it cannot be started for want of something. Any thread.
bool Bounce(const Bex::CSimpleString& strMailPath, CHeldMailFile& file, const Bex::CSimpleString& strErrorDirectory);
