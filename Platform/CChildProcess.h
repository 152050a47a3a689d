#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace Platform {

/// One started program, with the daemon's environment, default signal handling, and standard input from the null
/// device. Owned by the thread that waits for it; a child that nobody waits for is reaped by itself.
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
