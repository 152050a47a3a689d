#pragma once

#include "Common/CMail.h"

#include <string_view>

/// What the mail at hand is, as far as answering it goes. Stateless.

/// Loads a mail file, waiting for it up to 10 s while it is busy, or throws std::runtime_error. While the file is kept
/// open no other run and no daemon may take the mail; one that is open is read again, whatever has its name by then.
CMail LoadMail(const Bex::CSimpleString& strPath, bool bHeadersOnly, Bex::CFile& file);
CMail LoadMail(const Bex::CSimpleString& strPath, bool bHeadersOnly);
/// An address that programs report failures from: answering it would begin a loop.
bool IsBounceSender(std::string_view address);
/// An address of a program rather than a person: lists, robots, those who want no answer.
bool IsRobotSender(std::string_view address);
bool IsAddressedToRecipient(const CMail& mail); ///< To or Cc names the recipient of the envelope
bool IsBulk(const CMail& mail);                 ///< Precedence: bulk, list or junk
/// Sent by a program or to a list (RFC 3834 2): no automatic reply may answer it.
bool IsAutomatic(const CMail& mail);
