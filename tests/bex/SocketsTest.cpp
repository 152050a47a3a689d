#include "Bex/CEvent.h"
#include "Bex/CSocket.h"
#include "Bex/CSocketException.h"
#include "Bex/DnsRecords.h"
#include "Platform/Clock.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <thread>

using namespace Bex;

namespace {

/// The code that an operation raises; 0 when it raises none.
uint32_t ErrorOf(const std::function<void()>& operation)
{
    try {
        operation();
    } catch (const CSocketException& exception) {
        return exception.SocketError();
    }
    return 0;
}

struct CPair
{
    CSocket listener, client, server;

    explicit CPair(int iFamily = Platform::FAMILY_IPV4)
    {
        const char* pszLoopback = iFamily == Platform::FAMILY_IPV4 ? "127.0.0.1" : "::1";
        listener.Create(iFamily);
        listener.Bind(pszLoopback);
        listener.Listen(1);
        client.Create(iFamily);
        client.Connect(pszLoopback, listener.LocalEndPoint().Port());
        CSocketEndPoint peer;
        listener.Accept(server, peer);
        EXPECT_EQ(peer.Raw(), client.LocalEndPoint().Raw());
        EXPECT_EQ(peer.Address()->Text(), pszLoopback);
    }
};

TEST(SocketTest, SendTakesTheWholeBufferAndExpiresWithoutAReader)
{
    CPair pair;
    const std::string strSent(8u << 20, 'x'); // more than the kernel buffers
    const auto nSent = static_cast<uint32_t>(strSent.size());
    size_t nReceived = 0;
    std::thread reader([&] {
        char buffer[1u << 16];
        while (const uint32_t nPart = pair.server.Receive(buffer, sizeof(buffer), 0))
            nReceived += nPart;
    });
    EXPECT_EQ(pair.client.Send(strSent.data(), nSent, 0), nSent);
    pair.client.Shutdown(1);
    reader.join();
    EXPECT_EQ(nReceived, nSent);
    pair.server.SetTimeout(0);
    EXPECT_EQ(ErrorOf([&] { pair.server.Send(strSent.data(), nSent, 0); }), 10053u);
}

TEST(SocketTest, RaisesTheDocumentedCodes)
{
    CPair pair;
    char buffer[8];
    EXPECT_EQ(pair.client.Receive(buffer, 0, 0), 0u);
    pair.client.SetTimeout(1);
    const uint64_t ui64Started = Platform::TickCount();
    EXPECT_EQ(ErrorOf([&] { pair.client.Receive(buffer, sizeof(buffer), 0); }), 10053u);
    EXPECT_GE(Platform::TickCount() - ui64Started, 1000u);
    EXPECT_EQ(ErrorOf([&] { pair.client.Receive(buffer, 0x80000000u, 0); }), 87u);
    EXPECT_EQ(ErrorOf([&] { pair.client.Send(buffer, 0x80000000u, 0); }), 87u);
    pair.client.Close();
    pair.client.Close();
    EXPECT_EQ(ErrorOf([&] { pair.client.Receive(buffer, sizeof(buffer), 0); }), 10053u);
    EXPECT_EQ(ErrorOf([&] { pair.client.Send("x"); }), 10053u);
    EXPECT_FALSE(pair.client.Shutdown(1));

    const uint16_t wPort = pair.listener.LocalEndPoint().Port();
    pair.listener.Close();
    CSocket other;
    EXPECT_EQ(ErrorOf([&] { other.Create(99); }), 10047u);
    other.Create(Platform::FAMILY_IPV4);
    EXPECT_EQ(ErrorOf([&] { other.Bind("192.0.2.1"); }), 10049u);
    EXPECT_EQ(ErrorOf([&] { other.Connect("no such name", 25); }), 11001u);
    EXPECT_EQ(ErrorOf([&] { other.Connect("127.0.0.1", wPort); }), 10061u);
}

TEST(SocketTest, TellsOfAPeerThatReset)
{
    CPair pair(Platform::FAMILY_IPV6);
    EXPECT_EQ(pair.client.Send("unread"), 6u);
    char buffer[1];
    pair.server.Receive(buffer, 1, 0);
    pair.server.Close(); // with bytes unread: a reset
    EXPECT_EQ(ErrorOf([&] { pair.client.Receive(buffer, 1, 0); }), 10054u);
    EXPECT_EQ(ErrorOf([&] { pair.client.Send("x"); }), 10054u); // and no signal
}

TEST(SocketTest, AStopEndsEveryWait)
{
    CPair pair;
    const auto interrupted = [](CSocket& socket, const std::function<void()>& waiting) {
        CEvent stop;
        socket.SetLimit(Platform::CWaitLimit(&stop.Waitable()));
        std::thread interrupter([&] {
            Platform::SleepMillis(50); // it waits by then
            stop.Set();
        });
        const uint32_t dwError = ErrorOf(waiting);
        interrupter.join();
        socket.SetLimit({});
        return dwError;
    };
    char buffer[1];
    EXPECT_EQ(interrupted(pair.client, [&] { pair.client.Receive(buffer, 1, 0); }), 10053u);
    CSocketEndPoint peer;
    EXPECT_EQ(interrupted(pair.listener, [&] { pair.listener.Accept(pair.server, peer); }), 10004u);
    EXPECT_TRUE(pair.server.IsOpen());
    pair.client.SetLimit(Platform::CWaitLimit().For(0));
    EXPECT_EQ(ErrorOf([&] { pair.client.Send("x"); }), 10053u);

    CSocket full, first, second; // a first one fills its queue of connections
    for (CSocket* pSocket : {&full, &first, &second})
        pSocket->Create(Platform::FAMILY_IPV4);
    full.Bind("127.0.0.1");
    full.Listen(0);
    first.Connect(full.LocalEndPoint().Raw());
    EXPECT_EQ(interrupted(second, [&] { second.Connect(full.LocalEndPoint().Raw()); }), 10004u);
}

TEST(IPAddressTest, KnowsItsTextsAndRanges)
{
    CIPv4Address ipv4("192.0.2.1");
    EXPECT_EQ(ipv4.ReverseName(), "1.2.0.192");
    ipv4.Set("198.51.100.7");
    EXPECT_EQ(ipv4.Text(), "198.51.100.7");
    EXPECT_EQ(ipv4.ReverseName(), "7.100.51.198");
    EXPECT_TRUE(CIPv4Address("255.255.255.255").IsValid() && !CIPv4Address().IsValid());
    for (const char* pszPrivate : {"10.255.0.1", "172.16.0.1", "172.31.255.255", "192.168.1.1"})
        EXPECT_TRUE(CIPv4Address(pszPrivate).IsPrivate()) << pszPrivate;
    for (const char* pszPublic : {"11.0.0.1", "172.32.0.1", "172.15.0.1", "192.169.0.1"})
        EXPECT_FALSE(CIPv4Address(pszPublic).IsPrivate()) << pszPublic;
    EXPECT_TRUE(CIPv4Address("127.9.9.9").IsLoopback() && CIPv4Address("169.254.1.1").IsLinkLocal());
    const CIPv6Address ipv6("2001:DB8:0:0:0:0:0:1a");
    EXPECT_EQ(ipv6.Text(), "2001:db8::1a");
    EXPECT_EQ(ipv6.ReverseName(), "a.1.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.8.b.d.0.1.0.0.2");
    EXPECT_TRUE(CIPv6Address("::1").IsLoopback());
    for (const char* pszWrong : {"256.1.1.1", "", "1.2.3", "::1", "name"})
        EXPECT_EQ(ErrorOf([&] { CIPv4Address address{CSimpleString(pszWrong)}; }), 10022u) << pszWrong;
    EXPECT_EQ(ErrorOf([&] { CIPv6Address address{CSimpleString("127.0.0.1")}; }), 10022u);
    EXPECT_EQ(ErrorOf([&] { CIPv6Address address(ipv4.Raw()); }), 10047u);
}

TEST(SocketEndPointTest, CopiesTheAddressOfEitherFamily)
{
    const CSocketEndPoint ipv6(CIPv6Address("::1"), 465);
    CSocketEndPoint copy(ipv6);
    EXPECT_EQ(CSocketEndPoint(copy.Raw()).Port(), 465);
    copy = CSocketEndPoint();
    EXPECT_EQ(copy.Address(), nullptr);
    EXPECT_EQ(ipv6.Address()->Text(), "::1");
    EXPECT_EQ(ErrorOf([] { CSocketEndPoint unknown{Platform::SSocketAddress{}}; }), 10047u);
}

TEST(DnsRecordsTest, ANameIsReadWholeOrNotAtAll)
{
    const std::pair<std::string_view, const char*> cases[] = {
        {{"\2mx\4test\0", 9}, "mx.test"}, {{"\0", 1}, "."},         {{"\3a b\0", 5}, "a\\032b"}, {{"\0\0", 2}, nullptr},
        {{"\2mx", 3}, nullptr},           {{"\3mx\0", 4}, nullptr}, {{"\300\14\0", 3}, nullptr}, {"", nullptr}};
    for (const auto& [data, pszName] : cases) { // null: malformed
        CSimpleString strName("before");
        EXPECT_EQ(DecodeDnsName(data, strName), pszName != nullptr);
        EXPECT_EQ(strName, pszName != nullptr ? pszName : "before");
    }
}

} // namespace
