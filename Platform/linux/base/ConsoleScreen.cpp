#include "Platform/ConsoleScreen.h"

#include "Platform/Clock.h"

#include <cerrno>
#include <cstdlib>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace Platform {

namespace {

constexpr uint64_t LONGEST_STALL = 1000; // milliseconds that a full, non-blocking terminal or pipe may hold us up
constexpr std::string_view DEFAULT_COLOUR = "\x1b[39m";

/// Foregrounds only: the background stays as it is.
std::string_view EscapeSequence(EColour colour)
{
    switch (colour) {
    case EColour::BrightGreen:
        return "\x1b[92m";
    case EColour::Yellow:
        return "\x1b[93m";
    case EColour::BrightRed:
        return "\x1b[91m";
    case EColour::Grey:
        break;
    }
    return "\x1b[37m";
}

void WriteAll(int iDescriptor, std::string_view strText)
{
    const uint64_t ui64Started = TickCount();
    while (!strText.empty()) {
        const ssize_t nWritten = write(iDescriptor, strText.data(), strText.size());
        if (nWritten >= 0) {
            strText.remove_prefix(static_cast<size_t>(nWritten));
            continue;
        }
        if (errno == EINTR)
            continue;
        const uint64_t ui64Passed = TickCount() - ui64Started;
        if (errno != EAGAIN || ui64Passed >= LONGEST_STALL)
            return; // nobody could be told
        pollfd writable{iDescriptor, POLLOUT, 0};
        poll(&writable, 1, static_cast<int>(LONGEST_STALL - ui64Passed));
    }
}

} // namespace

bool HasConsole(bool bErrorStream)
{
    if (isatty(bErrorStream ? STDERR_FILENO : STDOUT_FILENO) == 0)
        return false;
    const char* const pszTerminal = std::getenv("TERM");
    return pszTerminal != nullptr && *pszTerminal != '\0' && std::string_view(pszTerminal) != "dumb";
}

bool HasKeyboard() { return isatty(STDIN_FILENO) != 0; }

void WriteConsole(bool bErrorStream, std::string_view strText, EColour colour, bool bColoured)
{
    const int iDescriptor = bErrorStream ? STDERR_FILENO : STDOUT_FILENO;
    if (!bColoured) {
        WriteAll(iDescriptor, strText);
        return;
    }
    std::string strColoured(EscapeSequence(colour));
    strColoured.append(strText).append(DEFAULT_COLOUR);
    WriteAll(iDescriptor, strColoured);
}

} // namespace Platform
