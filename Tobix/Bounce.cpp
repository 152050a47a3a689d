#include "Tobix/Bounce.h"

#include "Bex/CFile.h"
#include "Bex/CFileException.h"
#include "Bex/CSystemException.h"
#include "Bex/CThread.h"
#include "Bex/Log.h"
#include "Common/Globals.h"
#include "Common/MailHlpr.h"
#include "SMTPc/ErrorReport.h"

#include <string>

namespace {

constexpr char SOURCE_FILE[] = "Tobix/SMTPDeliveryThread";

template <class TRemove>
bool RemoveLogged(const Bex::CSimpleString& strFile, TRemove Remove)
{
    try {
        Remove();
        return true;
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__,
                       Bex::CSimpleString::Formatted("could not remove file \"%s\"", strFile.Text()).Text());
        return false;
    }
}

/// A program for which something is short is no answer: the mail is tried again. False when it runs on after a stop.
bool RunResponderOn(const Bex::CSimpleString& strCommandLine, const Bex::CSimpleString& strErrorDirectory)
{
    Platform::SetLastError({}); // a program that has run sets none
    const uint32_t dwResult = RunCommand(strCommandLine, strErrorDirectory);
    if (dwResult == 0)
        return true;
    Bex::LogError(Bex::MainLog(), "SystemCall( \"%s\" ) failed at %s:%d with error %u", strCommandLine.Text(),
                  SOURCE_FILE, __LINE__, dwResult);
    if (Platform::IsBusy(Platform::LastError()))
        Bex::ThrowSystemException(SOURCE_FILE, __LINE__, dwResult);
    return dwResult != Platform::SYS_OPERATION_ABORTED;
}

} // namespace

bool Bounce(const Bex::CSimpleString& strMailPath, CHeldMailFile& file, const Bex::CSimpleString& strErrorDirectory)
{
    if (Bex::CThread::IsCallerStopped())
        return true; // the next start goes on with it
    const Bex::CSimpleString strReport = ErrorReportPath(strMailPath);
    if (Config().GetFlag(Keys::BOUNCE_DISABLE)) {
        const bool bMailRemoved = RemoveLogged(strMailPath, [&] { file.RemoveIfStill(); });
        return RemoveLogged(strReport, [&] { Bex::CFile::Remove(strReport); }) && bMailRemoved;
    }
    if (file.IsReplaced())
        return true;
    const Bex::CSimpleString strPostmaster = Config().GetString(Keys::POSTMASTER_TO);
    const bool bAttach = Config().GetFlag(Keys::BOUNCE_ATTACHMENT);
    const char* pszBulk = Config().GetFlag(Keys::BOUNCE_BULK) ? "-ib " : "";
    const auto strFiles =
        Bex::CSimpleString::Formatted("%s -t %s", QuotedPath(strMailPath).Text(), QuotedPath(strReport).Text());
    const auto ForSender = [&](const char* pszKeep) {
        return Bex::CSimpleString::Formatted("responder.exe %s %s%s-s %s-o", strFiles.Text(), bAttach ? "-b full " : "",
                                             pszBulk, pszKeep);
    };
    if (strPostmaster.IsEmpty()) {
        RunResponderOn(ForSender(""), strErrorDirectory);
        return true;
    }
    if (!RunResponderOn(ForSender("-k "), strErrorDirectory) || file.IsReplaced())
        return true; // the next start goes on with it, or it is another by now
    // After a stop as well: the next start would send a mail whose sender has been told otherwise.
    RunResponderOn(Bex::CSimpleString::Formatted("responder.exe %s %s%s-s -to %s -o", strFiles.Text(),
                                                 bAttach ? "-b header " : "", pszBulk, strPostmaster.Text()),
                   strErrorDirectory);
    return true;
}
