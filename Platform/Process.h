#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// Starting other programs. Children get the daemon's environment, default signal handling, and standard input from
/// the null device.
namespace Platform {

unsigned CurrentProcessId();

/// While one of these lives no child is started. Held while a file is written that others open as soon as it has its
/// name: a child that starts meanwhile holds a copy of the descriptor until it runs its program, and the file would
/// look as if it were still being written. Not recursive.
class CStartsNoChild
{
public:
    CStartsNoChild();
    ~CStartsNoChild();
    CStartsNoChild(const CStartsNoChild&) = delete;
    CStartsNoChild& operator=(const CStartsNoChild&) = delete;
};

/// Puts one argument into double quotes for a command line, escaping quotes and the backslashes before them.
std::string QuoteArgument(std::string_view strArgument);
/// The arguments of a command line: blanks separate, double quotes keep together, \" is a quote.
std::vector<std::string> SplitCommandLine(std::string_view strCommandLine);

/// One started program. Owned by the thread that waits for it; a child that nobody waits for is reaped by itself.
class CChildProcess
{
public:
    /// Starts strProgram, or, when that is empty, the first word of the command line, found beside the executable,
    /// then in the working directory of the daemon, then along PATH. A script without an interpreter line runs under
    /// the shell. Null on failure: LastError.
    static std::unique_ptr<CChildProcess> Start(std::string_view strProgram, std::string_view strCommandLine,
                                                const char* pszWorkingDirectory);
    ~CChildProcess(); ///< does not wait
    CChildProcess(const CChildProcess&) = delete;
    CChildProcess& operator=(const CChildProcess&) = delete;

    unsigned Id() const;
    bool Wait(unsigned dwMillis);        ///< true when it has ended; INFINITE: no limit
    bool Terminate();                    ///< kills it; its exit code becomes all bits set
    bool ExitCode(uint32_t& dwExitCode); ///< false while it runs

private:
    struct SState;
    explicit CChildProcess(std::unique_ptr<SState> pState);
    std::unique_ptr<SState> m_pState;
};

} // namespace Platform
