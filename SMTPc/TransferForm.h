#pragma once

#include "Bex/CArray.h"

#include <string>

/// The bytes that follow DATA (RFC 5321 4.5.2): header block and body with the end marker behind them, which takes the
/// place of one that the body brings along. Any thread.
///
/// A body is taken as it is, being stored in transfer form, with its single dots doubled: nothing but the end marker
/// ends the transfer. A body with a line that begins with one dot followed by something else is not in transfer form:
/// there, every dot at the beginning of a line is doubled. Bare CR and LF become line ends, in the header block
/// spaces. Made in the body's own place, so that no large mail is in memory twice. COutOfMemoryException when it does
/// not fit.
Bex::CArray<char> TransferForm(std::string strHeader, Bex::CArray<char> body);
