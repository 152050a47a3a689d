// tobix-inject: hands in a mail, as programs call sendmail for it. Its command line stands in SCommand.h.
//
// May belong to a group that the queue directory lets write. Exit codes are those of sysexits.h (EExit), with a line on
// standard error: 0 says that the mail is in the queue, on stable storage.

#include "Bex/CException.h"
#include "Inject/CRefusal.h"
#include "Inject/CSubmission.h"
#include "Platform/Caller.h"

#include <algorithm>
#include <cstdio>
#include <exception>

namespace {

int Fail(EExit exit, const char* pszWhy)
{
    std::fprintf(stderr, "tobix-inject: %s\n", pszWhy);
    return static_cast<int>(exit);
}

void Run(const std::vector<std::string_view>& arguments)
{
    const SCommand command = SCommand::Parse(arguments);
    if (!command.bReadsMail)
        return;
    const SSettings settings = SSettings::Load();
    CSubmission(command, settings).Run();
}

} // namespace

int main(int nArguments, char** ppArguments)
{
    Platform::ForgetSurroundings();
    try {
        Run({ppArguments + std::min(1, nArguments), ppArguments + nArguments});
        return static_cast<int>(EExit::Done);
    } catch (const CRefusal& refusal) {
        return Fail(refusal.Exit(), refusal.what());
    } catch (const Bex::CException& exception) {
        char szReason[1024];
        exception.GetMessage(szReason, sizeof szReason);
        return Fail(EExit::Temporary, szReason);
    } catch (const std::exception& exception) {
        return Fail(EExit::Temporary, exception.what());
    }
}
