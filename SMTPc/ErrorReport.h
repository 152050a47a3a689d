#pragma once

#include "Bex/CSimpleString.h"
#include "Platform/CWaitLimit.h"
#include "SMTPc/SDeliveryFailure.h"

/// The error report beside a mail file, "<mail file>.err": a notification that tells why the last session failed.
/// Replaces an earlier one. Nothing is raised; a report that cannot be written is told on standard error, and the
/// earlier one stays. The host name is empty for failures before any connection. The
/// limit is that of the question for the host's own name. Any thread.
void WriteErrorReport(const SDeliveryFailure& failure, const Bex::CSimpleString& strMailPath,
                      const Bex::CSimpleString& strHostName, const Bex::CSimpleString& strRecipient,
                      const Platform::CWaitLimit& limit = {});

Bex::CSimpleString ErrorReportPath(const Bex::CSimpleString& strMailPath);
