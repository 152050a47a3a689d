#pragma once

#include "Bex/CSimpleString.h"

#include <cstdint>

/// Starting the programs that hang on a delivery. Any thread; every failure to start is logged. Where a program is
/// waited for, a stop of the calling thread ends the wait and leaves the program running.

/// A path as an argument: absolute, as programs run in directories of their own, and in quotes. Names of mail files are
/// made by others: a quote in one must not become further arguments.
Bex::CSimpleString QuotedPath(const Bex::CSimpleString& strPath);
/// Runs "newmail.cmd" of the directory for a file (empty: none) unless there is no such script; waits for its end
/// when not parallel. False when it cannot be started.
bool RunPostScript(const Bex::CSimpleString& strDirectory, const Bex::CSimpleString& strFile, bool bParallel);
bool HasPostScript(const Bex::CSimpleString& strDirectory);
/// Runs the spam tagger on a mailbox file.
void RunSpamTagger(const Bex::CSimpleString& strUserDirectory, const Bex::CSimpleString& strMailFile, bool bParallel);
/// Runs the automatic responder on a mailbox file.
void RunResponder(const Bex::CSimpleString& strUserDirectory, const Bex::CSimpleString& strMailFile,
                  const Bex::CSimpleString& strTemplate, const Bex::CSimpleString& strOutput, bool bParallel);
/// Runs a command line, for one hour at most, and gives its exit code, or the system error when something failed
/// (SYS_OPERATION_ABORTED: a stop ended the wait, after some seconds more).
uint32_t RunCommand(const Bex::CSimpleString& strCommandLine, const Bex::CSimpleString& strWorkingDirectory);
/// The value of Scripts.Execution.Parallel: started programs are not waited for.
bool ScriptsRunInParallel();
