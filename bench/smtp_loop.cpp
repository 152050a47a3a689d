// What sending costs at least: takes the mail files of a directory, one connection for each and some at a time, and
// does nothing but read, send and delete them. Prints the mails per second. The daemon's rate is told as a part of this
// one.
//
// smtp_loop DIRECTORY PORT CONNECTIONS [tls]: the server is on loopback; tls uses STARTTLS and resumes sessions.

#include "bench/smtp_wire.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace {

struct SJob
{
    std::vector<std::string> files;
    std::atomic<size_t> nNext{0};
    uint16_t wPort = 0;
    bool bTls = false;
};

[[noreturn]] void Fail(const std::string& strWhat)
{
    std::perror(strWhat.c_str());
    std::exit(1);
}

std::string ReadMail(const std::string& strPath)
{
    const int iFile = open(strPath.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status
    {};
    if (iFile < 0 || fstat(iFile, &status) != 0)
        Fail(strPath);
    std::string strMail(static_cast<size_t>(status.st_size), '\0');
    if (read(iFile, strMail.data(), strMail.size()) != status.st_size)
        Fail(strPath);
    close(iFile);
    return strMail + ".\r\n";
}

int ConnectTo(uint16_t wPort)
{
    const sockaddr_in address = Loopback(wPort);
    const int iSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(iSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
        Fail("connect");
    return iSocket;
}

/// The newest session that the server offered to this thread's connections.
thread_local SSL_SESSION* g_pOffered = nullptr;

int KeepSession(SSL*, SSL_SESSION* pSession)
{
    SSL_SESSION_free(g_pOffered);
    g_pOffered = pSession;
    return 1;
}

bool Secure(CWire& wire, SSL_CTX* pContext)
{
    if (!wire.Send("STARTTLS\r\n") || !wire.ReadReply(220))
        return false;
    SSL_SESSION* const pSession = g_pOffered;
    g_pOffered = nullptr;
    const bool bSecured = wire.Handshake(pContext, pSession);
    SSL_SESSION_free(pSession);
    return bSecured && wire.Send("EHLO client.example\r\n") && wire.ReadReply(250);
}

bool SendMail(const std::string& strMail, const SJob& job, SSL_CTX* pContext)
{
    const auto pWire = std::make_unique<CWire>(ConnectTo(job.wPort));
    CWire& wire = *pWire;
    return wire.ReadReply(220) && wire.Send("EHLO client.example\r\n") && wire.ReadReply(250) &&
           (!job.bTls || Secure(wire, pContext)) && wire.Send("MAIL From:<bob@far.example> SIZE=4096\r\n") &&
           wire.ReadReply(250) && wire.Send("RCPT To:<ann@away.example>\r\n") && wire.ReadReply(250) &&
           wire.Send("DATA\r\n") && wire.ReadReply(354) && wire.Send(strMail) && wire.ReadReply(250) &&
           wire.Send("QUIT\r\n") && wire.ReadReply(221);
}

void Work(SJob& job, SSL_CTX* pContext)
{
    for (size_t n = job.nNext++; n < job.files.size(); n = job.nNext++) {
        if (!SendMail(ReadMail(job.files[n]), job, pContext))
            Fail("sending " + job.files[n]);
        unlink(job.files[n].c_str());
    }
    SSL_SESSION_free(g_pOffered);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4)
        return 2;
    std::signal(SIGPIPE, SIG_IGN);
    SJob job;
    job.wPort = static_cast<uint16_t>(std::atoi(argv[2]));
    job.bTls = argc > 4;
    SSL_CTX* const pContext = SSL_CTX_new(TLS_client_method());
    SSL_CTX_set_session_cache_mode(pContext, SSL_SESS_CACHE_CLIENT | SSL_SESS_CACHE_NO_INTERNAL);
    SSL_CTX_sess_set_new_cb(pContext, KeepSession);
    const auto start = std::chrono::steady_clock::now();
    for (const auto& entry : std::filesystem::directory_iterator(argv[1]))
        job.files.push_back(entry.path());
    std::sort(job.files.begin(), job.files.end());
    std::vector<std::jthread> threads;
    for (int n = std::atoi(argv[3]); n > 0; --n)
        threads.emplace_back(Work, std::ref(job), pContext);
    threads.clear();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    std::printf("%.1f\n", static_cast<double>(job.files.size()) / elapsed.count());
    SSL_CTX_free(pContext);
    return 0;
}
