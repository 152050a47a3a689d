#pragma once

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

/// What arrives at a descriptor, waited for at most so long; a test that runs into it fails.
inline bool Readable(int iDescriptor)
{
    constexpr int LONGEST_WAIT = 20'000; // milliseconds
    pollfd polled{iDescriptor, POLLIN, 0};
    return poll(&polled, 1, LONGEST_WAIT) == 1;
}

/// A program of the build directory whose standard input and output (with the errors) are pipes to the test.
class CTalkingChild
{
public:
    CTalkingChild(const std::string& strProgram, std::vector<std::string> arguments,
                  std::vector<std::string> environment = {})
    {
        if (pipe2(m_toChild, O_CLOEXEC) != 0 || pipe2(m_fromChild, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        arguments.insert(arguments.begin(), TOBIX_BUILD_DIR "/" + strProgram);
        const std::vector<char*> argumentPointers = Pointers(arguments), environmentPointers = Pointers(environment);
        m_iProcess = fork();
        if (m_iProcess == 0) {
            dup2(m_toChild[0], STDIN_FILENO);
            dup2(m_fromChild[1], STDOUT_FILENO);
            dup2(m_fromChild[1], STDERR_FILENO);
            execve(argumentPointers.front(), argumentPointers.data(), environmentPointers.data());
            _exit(127);
        }
        close(m_toChild[0]);
        close(m_fromChild[1]);
    }
    ~CTalkingChild()
    {
        if (m_iProcess > 0) {
            kill(m_iProcess, SIGKILL);
            waitpid(m_iProcess, nullptr, 0);
        }
        close(m_toChild[1]);
        close(m_fromChild[0]);
    }
    CTalkingChild(const CTalkingChild&) = delete;
    CTalkingChild& operator=(const CTalkingChild&) = delete;

    pid_t Id() const { return m_iProcess; }
    void Send(int iSignal) const { kill(m_iProcess, iSignal); }
    void SendControl(int iControl) const { sigqueue(m_iProcess, SIGRTMIN, sigval{iControl}); }
    void OpenGate() const { EXPECT_EQ(write(m_toChild[1], "\n", 1), 1); }

    std::string Line() { return UpTo('\n'); } ///< without its end; what there is at the end of the output
    std::string Rest() { return UpTo(EOF); }  ///< up to the end of the output
    /// After Rest: its exit code, or minus the signal that ended it.
    int ExitCode()
    {
        int iStatus = 0;
        waitpid(m_iProcess, &iStatus, 0);
        m_iProcess = 0;
        return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -WTERMSIG(iStatus);
    }

private:
    std::string UpTo(int iEnd)
    {
        std::string strText;
        for (unsigned char c = 0; Readable(m_fromChild[0]) && read(m_fromChild[0], &c, 1) == 1 && c != iEnd;)
            strText += static_cast<char>(c);
        return strText;
    }
    static std::vector<char*> Pointers(std::vector<std::string>& texts)
    {
        std::vector<char*> pointers;
        for (std::string& strText : texts)
            pointers.push_back(strText.data());
        pointers.push_back(nullptr);
        return pointers;
    }

    pid_t m_iProcess = 0;
    int m_toChild[2];
    int m_fromChild[2];
};

/// Listens where a service manager would.
class CNotifySocket
{
public:
    explicit CNotifySocket(const std::string& strPath) : m_strPath(strPath)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
        if (bind(m_iSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
            throw std::runtime_error("cannot bind " + strPath);
    }
    ~CNotifySocket() { close(m_iSocket); }
    CNotifySocket(const CNotifySocket&) = delete;
    CNotifySocket& operator=(const CNotifySocket&) = delete;

    std::string Variable() const { return "NOTIFY_SOCKET=" + m_strPath; }
    std::string Next() const
    {
        char text[4096];
        const ssize_t iLength = Readable(m_iSocket) ? recv(m_iSocket, text, sizeof(text), 0) : 0;
        return {text, static_cast<size_t>(iLength > 0 ? iLength : 0)};
    }
    bool IsSilent() const { return recv(m_iSocket, nullptr, 0, MSG_PEEK | MSG_DONTWAIT) < 0; }

private:
    std::string m_strPath;
    int m_iSocket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};
