// Puts a mail server of this machine a round trip away: what comes from a client is passed on at once, what the server
// answers reaches the client a round trip after it was said, what was said together together. Connecting costs a round
// trip more.
//
// smtp_far PORT MILLISECONDS: PORT is the server's on loopback. It prints its own port and, for each line of its
// standard input, the number of connections that it has taken by then; it ends when its standard input does.

#include "bench/smtp_wire.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <deque>
#include <poll.h>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

struct SAnswer
{
    Clock::time_point due;
    std::string strText;
};

struct SPlace
{
    sockaddr_in server;
    Clock::duration roundTrip;
};

std::atomic<int> g_nConnections{0};

bool PassOn(int iFrom, int iTo)
{
    char buffer[65536];
    const auto nRead = recv(iFrom, buffer, sizeof(buffer), 0);
    for (ssize_t nDone = 0; nDone < nRead;) {
        const auto nSent = send(iTo, buffer + nDone, static_cast<size_t>(nRead - nDone), MSG_NOSIGNAL);
        if (nSent <= 0)
            return false;
        nDone += nSent;
    }
    return nRead > 0;
}

/// Keeps what the server said until it is due. False when the server has closed.
bool Keep(int iServer, std::deque<SAnswer>& answers, Clock::time_point due)
{
    char buffer[65536];
    const auto nRead = recv(iServer, buffer, sizeof(buffer), 0);
    if (nRead <= 0)
        return false;
    answers.push_back({due, std::string(buffer, static_cast<size_t>(nRead))});
    return true;
}

/// What is due leaves in one piece.
bool Hand(int iClient, std::deque<SAnswer>& answers)
{
    std::string strText;
    for (; !answers.empty() && answers.front().due <= Clock::now(); answers.pop_front())
        strText += answers.front().strText;
    return strText.empty() ||
           send(iClient, strText.data(), strText.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(strText.size());
}

int MillisecondsUntil(const std::deque<SAnswer>& answers)
{
    if (answers.empty())
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(answers.front().due - Clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

void Relay(int iClient, SPlace place)
{
    const int iServer = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), iOn = 1;
    const auto connected = Clock::now() + place.roundTrip;
    bool bServerThere = connect(iServer, reinterpret_cast<sockaddr*>(&place.server), sizeof(place.server)) == 0;
    setsockopt(iServer, IPPROTO_TCP, TCP_NODELAY, &iOn, sizeof(iOn));
    setsockopt(iClient, IPPROTO_TCP, TCP_NODELAY, &iOn, sizeof(iOn));
    std::deque<SAnswer> answers;
    while (bServerThere || !answers.empty()) {
        pollfd sides[] = {{iClient, POLLIN, 0}, {bServerThere ? iServer : -1, POLLIN, 0}};
        poll(sides, 2, MillisecondsUntil(answers));
        if (sides[1].revents != 0)
            bServerThere = Keep(iServer, answers, std::max(connected, Clock::now()) + place.roundTrip);
        if (!Hand(iClient, answers) || (sides[0].revents != 0 && !PassOn(iClient, iServer)))
            break;
    }
    close(iServer);
    close(iClient);
}

void AcceptAll(int iSocket, SPlace place)
{
    for (int iClient; (iClient = accept4(iSocket, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; ++g_nConnections)
        std::thread(Relay, iClient, place).detach();
}

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    if (argc != 3)
        return 2;
    const SPlace place{Loopback(static_cast<uint16_t>(std::atoi(argv[1]))),
                       std::chrono::milliseconds(std::atoi(argv[2]))};
    std::thread(AcceptAll, ListenOnLoopback(SOMAXCONN), place).detach();
    for (int iRead; (iRead = std::getchar()) != EOF;)
        if (iRead == '\n')
            std::printf("%d\n", g_nConnections.load());
    std::_Exit(0);
}
