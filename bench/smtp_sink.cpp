// A receiving mail server that accepts everything and keeps nothing, fast enough not to be what is measured.
//
// smtp_sink times|quiet [CERTIFICATE KEY]: with them it offers STARTTLS. It prints its port on loopback, then, if it is
// to tell times, for each MAIL command that of the monotonic clock in seconds; it ends when its standard input does.

#include "bench/smtp_wire.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <strings.h>
#include <thread>
#include <vector>

namespace {

constexpr int SESSIONS = 64; ///< at a time

struct SListener
{
    int iSocket;
    bool bTellTimes;
    SSL_CTX* pContext; ///< null without TLS
};

bool StartsWith(const std::string& strLine, const char* pszCommand)
{
    return strncasecmp(strLine.c_str(), pszCommand, std::string_view(pszCommand).size()) == 0;
}

void TellTime()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    std::printf("%.6f\n", std::chrono::duration<double>(now).count());
}

bool Answer(CWire& wire, const std::string& strCommand, const SListener& listener)
{
    SSL_CTX* const pContext = listener.pContext;
    if (StartsWith(strCommand, "EHLO"))
        return wire.Send(pContext != nullptr && wire.Tls() == nullptr
                             ? "250-sink.example\r\n250-PIPELINING\r\n250-STARTTLS\r\n250 SIZE\r\n"
                             : "250-sink.example\r\n250-PIPELINING\r\n250 SIZE\r\n");
    if (StartsWith(strCommand, "STARTTLS") && pContext != nullptr)
        return wire.Send("220 go on\r\n") && wire.Accept(pContext);
    if (StartsWith(strCommand, "DATA"))
        return wire.Send("354 go on\r\n") && wire.SkipPayload() && wire.Send("250 accepted\r\n");
    if (StartsWith(strCommand, "QUIT")) {
        wire.Send("221 bye\r\n");
        return false;
    }
    if (listener.bTellTimes && StartsWith(strCommand, "MAIL"))
        TellTime();
    return wire.Send("250 ok\r\n");
}

void Serve(SListener listener)
{
    for (;;) {
        const int iSocket = accept4(listener.iSocket, nullptr, nullptr, SOCK_CLOEXEC);
        if (iSocket < 0)
            return;
        CWire wire(iSocket);
        std::string strCommand;
        bool bGoOn = wire.Send("220 sink.example ready\r\n");
        while (bGoOn && wire.ReadLine(strCommand))
            bGoOn = Answer(wire, strCommand, listener);
    }
}

SSL_CTX* ContextWith(const char* pszCertificate, const char* pszKey)
{
    SSL_CTX* const pContext = SSL_CTX_new(TLS_server_method());
    if (SSL_CTX_use_certificate_file(pContext, pszCertificate, SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_use_PrivateKey_file(pContext, pszKey, SSL_FILETYPE_PEM) != 1)
        std::exit(1);
    return pContext;
}

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    if (argc != 2 && argc != 4)
        return 2;
    const bool bTellTimes = std::string_view(argv[1]) == "times";
    const SListener listener{ListenOnLoopback(SESSIONS), bTellTimes,
                             argc == 4 ? ContextWith(argv[2], argv[3]) : nullptr};
    for (int n = 0; n < SESSIONS; ++n)
        std::thread(Serve, listener).detach();
    while (std::getchar() != EOF) {
    }
    std::_Exit(0);
}
