#pragma once

#include "Bex/CSimpleString.h"

/// CFileException unless the file is gone then.
void RemoveIfPresent(const Bex::CSimpleString& strPath);

/// The mark "REPORT.unsent" that a run which keeps mail and report holds until the notification is sent: if the run
/// fails, however it does, the next one, for another receiver, finds it and does not delete what nobody was told.
class CUnsentMark
{
public:
    /// Sets the mark for a run that keeps the files, and takes it over in one that does not.
    CUnsentMark(const Bex::CSimpleString& strReport, bool bKeep);
    /// The notification is on stable storage. Throws std::runtime_error when the mark of another run says that an
    /// earlier one is not: the files shall stay, for the mail to be tried again.
    void Sent();

private:
    Bex::CSimpleString m_strPath;
    bool m_bOfEarlierRun;
};
