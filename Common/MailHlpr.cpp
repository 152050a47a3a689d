#include "Common/MailHlpr.h"

#include "Bex/CActivity.h"
#include "Bex/CThread.h"
#include "Bex/FrozenLine.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Platform/CChildProcess.h"
#include "Platform/Clock.h"
#include "Platform/CommandLine.h"
#include "Platform/Errors.h"
#include "Platform/FileSystem.h"

#include <limits>
#include <memory>
#include <string>

namespace {

constexpr char SOURCE_FILE[] = "Common/MailHlpr";
constexpr unsigned LONGEST_COMMAND = 3600000; // milliseconds
constexpr unsigned LONGEST_AFTER_STOP = 5000; // milliseconds

constexpr Bex::FrozenLine POST_SCRIPT_LINE = 57;
constexpr Bex::FrozenLine SPAM_TAGGER_LINE = 100;
constexpr Bex::FrozenLine RESPONDER_LINE = 140;

using Child = std::unique_ptr<Platform::CChildProcess>;

/// Null when the program cannot be started, which is logged as this line's failure.
Child StartLogged(const Bex::CSimpleString& strProgram, const Bex::CSimpleString& strCommandLine,
                  const Bex::CSimpleString& strDirectory, int iLine, const Bex::CSimpleString& strLoggedPath)
{
    Bex::CThread::EndIfAbandoned();
    Child pChild = Platform::CChildProcess::Start(strProgram, strCommandLine, strDirectory.Text());
    if (!pChild) {
        Bex::LogError(Bex::MainLog(), "CreateProcess in %s:%d for \"%s\" failed, error = %d", SOURCE_FILE, iLine,
                      strLoggedPath.Text(), static_cast<int>(Platform::LastError().dwSysError));
    }
    return pChild;
}

/// A stop ends the wait, not the program.
bool HasRunToItsEnd(Platform::CChildProcess& child, const char* pszName,
                    uint64_t ui64Millis = std::numeric_limits<uint64_t>::max())
{
    const Bex::CActivity::CStep step("waits for %s", pszName);
    constexpr unsigned LOOK_MILLIS = 100;
    const uint64_t ui64Started = Platform::TickCount();
    while (!child.Wait(LOOK_MILLIS)) {
        Bex::CThread::EndIfAbandoned();
        Bex::CActivity::Alive();
        if (Bex::CThread::IsCallerStopped() || Platform::TickCount() - ui64Started >= ui64Millis)
            return false;
    }
    Bex::CThread::EndIfAbandoned();
    return true;
}

/// A program of the mail system is found by its name, the command line's first word, but logged as if it lay with the
/// configuration.
void RunMailProgram(const char* pszName, const Bex::CSimpleString& strCommandLine,
                    const Bex::CSimpleString& strDirectory, int iLine, bool bParallel)
{
    Child pChild = StartLogged({}, strCommandLine, strDirectory, iLine, Bex::JoinPath(ConfigDirectory(), pszName));
    if (pChild && !bParallel)
        HasRunToItsEnd(*pChild, pszName);
}

} // namespace

Bex::CSimpleString QuotedPath(const Bex::CSimpleString& strPath)
{
    return Bex::CSimpleString(std::string_view(Platform::QuoteArgument(Platform::AbsolutePath(strPath))));
}

bool HasPostScript(const Bex::CSimpleString& strDirectory)
{
    return Platform::KindOf(Bex::JoinPath(strDirectory, "newmail.cmd").Text()) == Platform::EPathKind::File;
}

bool RunPostScript(const Bex::CSimpleString& strDirectory, const Bex::CSimpleString& strFile, bool bParallel)
{
    const Bex::CSimpleString strScript = Bex::JoinPath(strDirectory, "newmail.cmd");
    if (Platform::KindOf(strScript.Text()) != Platform::EPathKind::File)
        return true;
    const Bex::CSimpleString strArgument =
        strFile.IsEmpty() ? Bex::CSimpleString() : Bex::JoinPath(strDirectory, strFile);
    const auto strCommandLine = Bex::CSimpleString::Formatted("newmail.cmd %s", QuotedPath(strArgument).Text());
    Child pChild = StartLogged(strScript, strCommandLine, strDirectory, POST_SCRIPT_LINE, strScript);
    if (!pChild)
        return false;
    Bex::LogInfo(Bex::MainLog(), "postprocessing-script for \"%s\" started", strFile.Text());
    if (!bParallel && HasRunToItsEnd(*pChild, "newmail.cmd"))
        Bex::LogInfo(Bex::MainLog(), "postprocessing-script for \"%s\" finished", strFile.Text());
    return true;
}

void RunSpamTagger(const Bex::CSimpleString& strUserDirectory, const Bex::CSimpleString& strMailFile, bool bParallel)
{
    const auto strCommandLine =
        Bex::CSimpleString::Formatted("spamscan.exe %s -tag -s", QuotedPath(strMailFile).Text());
    RunMailProgram("spamscan.exe", strCommandLine, strUserDirectory, SPAM_TAGGER_LINE, bParallel);
}

void RunResponder(const Bex::CSimpleString& strUserDirectory, const Bex::CSimpleString& strMailFile,
                  const Bex::CSimpleString& strTemplate, const Bex::CSimpleString& strOutput, bool bParallel)
{
    const Bex::CSimpleString strTemplatePath = Bex::JoinPath(strUserDirectory, strTemplate);
    const auto strCommandLine =
        Bex::CSimpleString::Formatted("responder.exe %s -t %s -o %s -k -s", QuotedPath(strMailFile).Text(),
                                      QuotedPath(strTemplatePath).Text(), QuotedPath(strOutput).Text());
    RunMailProgram("responder.exe", strCommandLine, strUserDirectory, RESPONDER_LINE, bParallel);
}

uint32_t RunCommand(const Bex::CSimpleString& strCommandLine, const Bex::CSimpleString& strWorkingDirectory)
{
    Bex::CThread::EndIfAbandoned();
    Child pChild = Platform::CChildProcess::Start({}, strCommandLine, strWorkingDirectory.Text());
    if (!pChild)
        return Platform::LastError().dwSysError;
    uint32_t dwExitCode = 0;
    if (!HasRunToItsEnd(*pChild, strCommandLine.Text(), LONGEST_COMMAND)) {
        const bool bStopped = Bex::CThread::IsCallerStopped();
        const bool bGoesOn = bStopped && !pChild->Wait(LONGEST_AFTER_STOP);
        Bex::CThread::EndIfAbandoned();
        if (bGoesOn)
            return Platform::SYS_OPERATION_ABORTED;
        if (!bStopped && !pChild->Terminate())
            return Platform::LastError().dwSysError;
    }
    return pChild->ExitCode(dwExitCode) ? dwExitCode : Platform::LastError().dwSysError;
}

bool ScriptsRunInParallel() { return Config().GetFlag(Keys::SCRIPTS_IN_PARALLEL); }
