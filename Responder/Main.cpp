// The companion program that composes bounces and automatic replies. Its command line stands in SCommand.h.
//
// Exit code 0: done, also when there was nothing to answer. 1: failed, with a line on standard error; every mail and
// report is still there. 2: the command line cannot be understood.

#include "Bex/CException.h"
#include "Responder/AutomaticReply.h"
#include "Responder/Notification.h"

#include <algorithm>
#include <cstdio>
#include <exception>

namespace {

constexpr int FAILED = 1;
constexpr int MISUSED = 2;
constexpr char USAGE[] = "usage: responder.exe MAIL -t REPORT [-b full|header] [-ib] [-s] [-k] [-to ADDRESS] -o\n"
                         "       responder.exe MAIL -t TEMPLATE -o OUTPUT [-ib] [-s] [-k]\n";

int Fail(const SCommand& command, const char* pszReason)
{
    std::fprintf(stderr, "responder.exe: \"%s\": %s\n", command.strMail.Text(), pszReason);
    return FAILED;
}

int Run(const SCommand& command)
{
    try {
        const char* pszDone = command.IsBounce() ? NotifySender(command) : ReplyAutomatically(command);
        if (!command.bSilent)
            std::printf("\"%s\": %s\n", command.strMail.Text(), pszDone);
        return 0;
    } catch (const Bex::CException& exception) {
        char szReason[1024];
        exception.GetMessage(szReason, sizeof szReason);
        return Fail(command, szReason);
    } catch (const std::exception& exception) {
        return Fail(command, exception.what());
    }
}

} // namespace

int main(int nArguments, char** ppArguments)
{
    const auto command = SCommand::Parse({ppArguments + std::min(1, nArguments), ppArguments + nArguments});
    if (command)
        return Run(*command);
    std::fputs(USAGE, stderr);
    return MISUSED;
}
