#include "Bex/CConsoleApplication.h"
#include "Bex/CService.h"
#include "Bex/CThread.h"
#include "Platform/CControlSource.h"
#include "Platform/CrashHandler.h"
#include "Platform/Errors.h"
#include "Platform/Host.h"

#include <cstdio>
#include <cstdlib>

namespace {

int RunApplication(int argc, char** argv, char** envp)
{
    if (Bex::CService* const pService = Bex::CService::Instance(); pService != nullptr) {
        pService->Initialize(argc, argv, envp);
        return pService->Main();
    }
    Platform::ReleaseControlSignals();
    if (Bex::CConsoleApplication* const pApplication = Bex::CConsoleApplication::Instance(); pApplication != nullptr) {
        pApplication->Initialize(argc, argv, envp);
        return pApplication->Run();
    }
    std::fputs("neither an instance of Bex::CService nor of Bex::CConsoleApplication found, cannot call Run\n", stderr);
    return -1;
}

} // namespace

/// The program's one application object is a static one: it stands before this runs.
int main(int argc, char** argv, char** envp)
{
    if (int iExitCode = 0; Platform::RunCrashHelperIfAsked(argc, argv, iExitCode))
        return iExitCode;
    if (!Platform::InstallCrashHandler())
        std::fprintf(stderr, "crashes will not be reported, error %u\n", Platform::LastError().dwSysError);
    Platform::ReturnFreedMemory();
    Platform::BlockControlSignals();
    const int iResult = RunApplication(argc, argv, envp);
    if (!Bex::CThread::AnyAbandoned())
        return iResult;
    // A thread that was given up may still use the static objects: leave them to the end of the process.
    std::fflush(nullptr);
    std::_Exit(iResult);
}
