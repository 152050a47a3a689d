#include "Platform/ProgramOutput.h"

#include "Platform/Clock.h"
#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/base/GuardedCall.h"
#include "Platform/linux/base/Result.h"
#include "Platform/linux/process/ProgramSearch.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Platform {

namespace {

constexpr size_t PIECE = 65536;

/// The child has the null device for input and errors, and the pipe for output. 0, or an errno.
int Spawn(pid_t& iProcess, const std::string& strPath, const std::vector<std::string>& arguments, int iOutput)
{
    std::vector<std::string> copies = arguments;
    std::vector<char*> pointers;
    pointers.reserve(copies.size() + 1);
    for (std::string& strArgument : copies)
        pointers.push_back(strArgument.data());
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    int iErrno = posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (iErrno == 0)
        iErrno = posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    if (iErrno == 0)
        iErrno = posix_spawn_file_actions_adddup2(&actions, iOutput, STDOUT_FILENO);
    const auto spawn = [&] {
        errno = posix_spawn(&iProcess, strPath.c_str(), &actions, nullptr, pointers.data(), environ);
        return errno == 0 ? 0 : -1;
    };
    if (iErrno == 0 && GuardedCall({EFault::CreateProcess, strPath.c_str()}, spawn) != 0)
        iErrno = errno;
    posix_spawn_file_actions_destroy(&actions);
    return iErrno;
}

/// True at the end of the output, false when there is too much of it or it takes too long.
bool Collect(int iInput, size_t nMost, unsigned dwMillis, std::string& strOutput)
{
    const uint64_t nEnd = TickCount() + dwMillis;
    std::array<char, PIECE> piece;
    for (;;) {
        const uint64_t nNow = TickCount();
        pollfd readable{iInput, POLLIN, 0};
        if (nNow >= nEnd || poll(&readable, 1, static_cast<int>(nEnd - nNow)) == 0)
            return false;
        const ssize_t iRead = read(iInput, piece.data(), piece.size());
        if (iRead == 0)
            return true;
        if (iRead < 0 && errno != EINTR && errno != EAGAIN)
            return false;
        if (iRead <= 0)
            continue;
        strOutput.append(piece.data(), std::min(static_cast<size_t>(iRead), nMost - strOutput.size()));
        if (strOutput.size() == nMost)
            return false;
    }
}

} // namespace

bool ReadProgramOutput(const std::vector<std::string>& arguments, size_t nMost, unsigned dwMillis,
                       std::string& strOutput, bool* pbComplete)
{
    strOutput.clear();
    const std::string strPath = FindProgram(arguments.front());
    int ends[2];
    if (strPath.empty() || GuardedCall({EFault::CreateProcess}, [&] { return pipe2(ends, O_CLOEXEC); }) != 0)
        return FailWithErrno();
    const CDescriptor input(ends[0]);
    CDescriptor output(ends[1]);
    pid_t iProcess = 0;
    if (const int iErrno = Spawn(iProcess, strPath, arguments, output.Get()); iErrno != 0) {
        SetLastError(CreationErrorFromErrno(iErrno));
        return false;
    }
    output.Close();
    const bool bComplete = Collect(input.Get(), nMost, dwMillis, strOutput);
    if (pbComplete != nullptr)
        *pbComplete = bComplete;
    if (!bComplete)
        kill(iProcess, SIGKILL);
    int iStatus = 0;
    while (waitpid(iProcess, &iStatus, 0) < 0 && errno == EINTR)
        continue;
    if (!bComplete || (WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 0))
        return true;
    SetLastError({LIB_OTHER, SYS_GENERAL_FAILURE});
    return false;
}

} // namespace Platform
