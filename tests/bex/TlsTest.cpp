#include "Bex/CCertificateException.h"
#include "Bex/CSecureSocket.h"
#include "Bex/CSecurityException.h"
#include "Bex/CSocketException.h"
#include "support/CLogRecorder.h"
#include "support/CTlsWorld.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

using namespace Bex;
using namespace Platform;
using testing::Contains;
using testing::ElementsAre;

namespace {

constexpr uint32_t ALL_CHECKED = 20; // seconds that a test waits at most for its peer
constexpr uint32_t TLS1_2_ONLY = TLS_PROTOCOL_TLS1_2;

uint32_t StatusOf(const std::function<void()>& operation)
{
    try {
        operation();
    } catch (const CSecurityException& exception) {
        return exception.Status();
    } catch (const CCertificateException& exception) {
        return exception.Error();
    } catch (const CSocketException& exception) {
        return exception.SocketError();
    }
    return 0;
}

class CClient : public CSecureSocket
{
public:
    bool m_bAcceptAll = false;
    bool VerifyCertificate(uint32_t dwStatus) override
    {
        return CSecureSocket::VerifyCertificate(dwStatus) || m_bAcceptAll;
    }
};

/// Both ends of a connection on loopback; the server end shakes hands on a thread of its own.
struct CPair
{
    CSecureSocket listener, server;
    CClient client;
    uint32_t dwServerStatus = 0;

    explicit CPair(const char* pszCertificate = "good")
    {
        CTlsWorld::Instance().Need(pszCertificate);
        listener.Create(FAMILY_IPV4);
        listener.Bind("127.0.0.1");
        listener.SetSecure(true);
        listener.SetCertificateName(pszCertificate);
        listener.Listen(1);
        server.SetTimeout(ALL_CHECKED);
        client.SetTimeout(ALL_CHECKED);
        client.SetSecure(true);
        client.Create(FAMILY_IPV4);
    }
    ~CPair() { client.Close(); }

    uint32_t Connect(const char* pszTarget = "localhost")
    {
        std::thread acceptor([this] {
            CSocketEndPoint peer;
            dwServerStatus = StatusOf([&] { listener.Accept(server, peer); });
            if (dwServerStatus != 0)
                server.Close();
        });
        const uint32_t dwStatus =
            StatusOf([&] { client.Connect("127.0.0.1", listener.LocalEndPoint().Port(), pszTarget); });
        acceptor.join();
        return dwStatus;
    }
};

std::string ReceiveAll(CSecureSocket& socket, size_t nLength)
{
    std::string strAll;
    char buffer[5000];
    while (strAll.size() < nLength) {
        const uint32_t nReceived = socket.Receive(buffer, sizeof(buffer), 0);
        if (nReceived == 0)
            break;
        strAll.append(buffer, nReceived);
    }
    return strAll;
}

TEST(TlsTest, ParsesProtocolNames)
{
    EXPECT_EQ(CSecureSocket::ParseCipherProtocols("tls1_2,TLS1_3"), 0x2800u);
    EXPECT_EQ(CSecureSocket::ParseCipherProtocols("TLS1_2, TLS1_3"), 0x800u);
    EXPECT_EQ(CSecureSocket::ParseCipherProtocols("SSL2,SSL3,TLS1_0,TLS1_1"), 0x2A8u);
    EXPECT_EQ(CSecureSocket::ParseCipherProtocols("TLS2"), 0u);
    EXPECT_EQ(CSecureSocket::ParseCipherProtocols(""), 0u);
}

class TlsVersionTest : public testing::TestWithParam<uint32_t>
{};

TEST_P(TlsVersionTest, CarriesBytesBothWaysAndResumes)
{
    const std::string strLong(100'000, 'x');
    for (const bool bAgain : {false, true}) {
        CPair pair;
        pair.listener.SetProtocols(GetParam());
        pair.client.SetProtocols(GetParam());
        ASSERT_EQ(pair.Connect("good.test"), 0u);
        ASSERT_EQ(pair.dwServerStatus, 0u);
        EXPECT_TRUE(pair.client.IsEstablished());
        EXPECT_TRUE(pair.client.IsResumed() || !bAgain);
        EXPECT_EQ(pair.client.Send("EHLO\r\n"), 6u);
        EXPECT_EQ(ReceiveAll(pair.server, 6), "EHLO\r\n");
        EXPECT_EQ(pair.server.Send(strLong.data(), 100'000, 0), 100'000u);
        EXPECT_EQ(ReceiveAll(pair.client, strLong.size()), strLong);
        EXPECT_TRUE(pair.client.Shutdown(1));
        EXPECT_FALSE(pair.client.IsEstablished());
        EXPECT_EQ(ReceiveAll(pair.server, 1), "");
    }
}
INSTANTIATE_TEST_SUITE_P(Masks, TlsVersionTest,
                         testing::Values(TLS_PROTOCOL_TLS1_0, TLS_PROTOCOL_TLS1_1, TLS_PROTOCOL_TLS1_2,
                                         TLS_PROTOCOL_TLS1_3, 0u));

TEST(TlsTest, TellsBothEndsThatNoVersionFits)
{
    CPair pair;
    pair.listener.SetProtocols(TLS_PROTOCOL_TLS1_3);
    pair.client.SetProtocols(TLS1_2_ONLY);
    EXPECT_EQ(pair.Connect(), SEC_E_UNSUPPORTED_FUNCTION); // the server's alert
    EXPECT_EQ(pair.dwServerStatus, SEC_E_ALGORITHM_MISMATCH);
    pair.client.SetProtocols(TLS_PROTOCOL_SSL3);
    EXPECT_EQ(StatusOf([&] { pair.client.Negotiate("localhost"); }), SEC_E_ALGORITHM_MISMATCH);
}

TEST(TlsTest, SharesItsCachesAmongThreads)
{
    CTlsWorld::Instance().Need("offline");
    const CLogRecorder quiet;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int j = 0; j < 4; ++j) {
                CPair pair("offline");
                EXPECT_EQ(pair.Connect(), 0u);
                pair.server.Send("220\r\n");
                EXPECT_EQ(ReceiveAll(pair.client, 5), "220\r\n");
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

TEST(TlsTest, GivesARecordPieceByPieceWithoutReadingOn)
{
    CPair pair;
    ASSERT_EQ(pair.Connect(), 0u);
    std::string strSent;
    for (int i = 0; i < 100; ++i)
        strSent += static_cast<char>('0' + i % 75);
    pair.server.Send(strSent.data(), 100, 0);
    char piece[10];
    std::string strReceived;
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(pair.client.Receive(piece, sizeof(piece), 0), 10u);
        strReceived.append(piece, sizeof(piece));
        pair.client.Interrupt(); // reading from the connection would fail from now on
    }
    EXPECT_EQ(strReceived, strSent);
}

TEST(TlsTest, SaysGoodbyeBeforeItCloses)
{
    CPair pair;
    pair.client.SetProtocols(TLS1_2_ONLY);
    ASSERT_EQ(pair.Connect(), 0u);
    pair.client.Close();
    pair.server.SetSecure(false); // to see the records themselves
    constexpr char ALERT = 21;
    EXPECT_THAT(ReceiveAll(pair.server, 1000), testing::StartsWith(std::string{ALERT, 3, 3}));
    pair.server.SetSecure(true);
    pair.server.Close(); // cannot say goodbye any more, and closes all the same
    EXPECT_FALSE(pair.server.IsOpen());
}

struct SCheckCase
{
    const char* pszCertificate;
    const char* pszTarget;
    uint32_t dwStatus;
    std::vector<std::string> lines; ///< of the log, before the one about VerifyCertificate
};
class TlsCheckTest : public testing::TestWithParam<SCheckCase>
{};

TEST_P(TlsCheckTest, JudgesTheServersCertificate)
{
    const SCheckCase& expected = GetParam();
    CTlsWorld::Instance().Need("revoked"); // the list
    CTlsWorld::Instance().Need("denied");  // the responder's answer
    for (const bool bAcceptAll : {false, true}) {
        std::vector<std::string> lines = expected.lines;
        char refusal[100];
        snprintf(refusal, sizeof(refusal), "3 CSecureSocket::VerifyCertificate returned 0x%08X", expected.dwStatus);
        if (expected.dwStatus != 0)
            lines.emplace_back(refusal);
        CLogRecorder log;
        CPair pair(expected.pszCertificate);
        pair.client.m_bAcceptAll = bAcceptAll;
        EXPECT_EQ(pair.Connect(expected.pszTarget), bAcceptAll ? 0 : expected.dwStatus);
        EXPECT_EQ(pair.client.IsEstablished(), bAcceptAll || expected.dwStatus == 0);
        EXPECT_THAT(log.Lines(), testing::ElementsAreArray(lines));
    }
    CLogRecorder log;
    CPair pair(expected.pszCertificate);
    pair.client.SetCheckCertificate(false);
    EXPECT_EQ(pair.Connect(expected.pszTarget), 0u);
    EXPECT_THAT(log.Lines(), testing::IsEmpty());
}

const std::string FIRST_ELEMENT = "6 [0][0]";
const std::string OFFLINE = "3 CERT_REVOCATION_STATUS.dwError: 0x80092013 .dwIndex: 0 .dwReason: 0";
const std::string BY_CA = "6 Issuer:  \"Test, Inc.\", ca";
std::vector<std::string> ChainOf(const std::string& strError, const std::string& strName)
{
    return {strError, FIRST_ELEMENT, "6 Subject: \"Test, Inc.\", " + strName,
            BY_CA,    "6 [0][1]",    "6 Subject: \"Test, Inc.\", ca",
            BY_CA};
}
INSTANTIATE_TEST_SUITE_P(
    Certificates, TlsCheckTest,
    testing::Values(
        SCheckCase{"good", "GOOD.test.", 0, {}}, //
        SCheckCase{"listed", "listed.test", 0, {}}, SCheckCase{"good", "", SEC_E_WRONG_PRINCIPAL, {}},
        SCheckCase{"good", "\xC0\x80.test", SEC_E_WRONG_PRINCIPAL, {}},
        SCheckCase{"expired", "expired.test", SEC_E_CERT_EXPIRED, {}},
        SCheckCase{"good", "other.test", CERT_E_CN_NO_MATCH,
                   ChainOf("3 error 0x800B010F in pChainContext->rgpChain[0]->rgpElement[0]: "
                           "dwErrorStatus=0x00000000 dwInfoStatus=0x00000004",
                           "good")},
        SCheckCase{"client", "[127.0.0.1]", CERT_E_WRONG_USAGE,
                   ChainOf("3 error 0x800B0110 in pChainContext->rgpChain[0]->rgpElement[0]: "
                           "dwErrorStatus=0x00000000 dwInfoStatus=0x00000004",
                           "client")},
        SCheckCase{"strange",
                   "strange.test",
                   CERT_E_CHAINING,
                   {"3 error 0x800B010A in pChainContext->rgpChain[0]: dwErrorStatus=0x00010000 "
                    "dwInfoStatus=0x00000000",
                    FIRST_ELEMENT, "6 Subject: \"Test, Inc.\", strange", "6 Issuer:  \"Test, Inc.\", stranger"}},
        SCheckCase{"revoked", "revoked.test", CRYPT_E_REVOKED,
                   ChainOf("3 CERT_REVOCATION_STATUS.dwError: 0x80092010 .dwIndex: 0 .dwReason: 1", "revoked")},
        SCheckCase{"confirmed", "confirmed.test", 0, {}},
        SCheckCase{"denied", "denied.test", CRYPT_E_REVOKED,
                   ChainOf("3 CERT_REVOCATION_STATUS.dwError: 0x80092010 .dwIndex: 0 .dwReason: 1", "denied")},
        SCheckCase{"elsewhere", "elsewhere.test", 0, {OFFLINE}}, SCheckCase{"offline", "offline.test", 0, {OFFLINE}}));

TEST(TlsTest, RefusesARootThatIsNotTheSystems)
{
    CTlsWorld::Instance().Need("rooted");
    CTlsWorld::Instance().Run("cat rooted.crt stranger.pem rooted.key > store/rooted.pem");
    CLogRecorder log;
    CPair pair("rooted");
    EXPECT_EQ(pair.Connect("rooted.test"), CERT_E_UNTRUSTEDROOT);
    EXPECT_THAT(log.Lines(), Contains("3 error 0x800B0109 in pChainContext->rgpChain[0]->rgpElement[1]: "
                                      "dwErrorStatus=0x00000020 dwInfoStatus=0x00000008"));
}

TEST(TlsTest, RefusesASignatureThatCanBeForged)
{
    CTlsWorld::Instance().Need("good");
    CTlsWorld::Instance().Run("openssl req -new -key good.key -subj /CN=weak | openssl x509 -req -sha1 -CA ca.pem "
                              "-CAkey ca.key -CAcreateserial -days 5 -extfile good.ext -out weak.crt && "
                              "cat weak.crt good.key > store/weak.pem");
    CLogRecorder log;
    CPair pair("weak");
    pair.listener.SetProtocols(TLS_PROTOCOL_TLS1_0 | TLS_PROTOCOL_TLS1_2); // where such certificates are at home
    EXPECT_EQ(pair.Connect("good.test"), TRUST_E_CERT_SIGNATURE);
}

TEST(TlsTest, AsksTheClientForItsCertificate)
{
    CTlsWorld::Instance().Need("client");
    for (const bool bPresents : {false, true}) {
        CPair pair;
        pair.listener.SetCheckCertificate(true);
        if (bPresents)
            pair.client.SetCertificateName("client.test");
        EXPECT_EQ(pair.Connect(), 0u);
        EXPECT_EQ(pair.dwServerStatus, bPresents ? 0 : SEC_E_NO_CREDENTIALS);
    }
}

TEST(TlsTest, LogsACertificateThatItCannotFind)
{
    CLogRecorder log;
    CPair pair("nobody");
    EXPECT_NE(pair.Connect(), 0u);
    EXPECT_EQ(pair.dwServerStatus, SEC_E_NO_CREDENTIALS);
    EXPECT_THAT(log.Lines(),
                ElementsAre("3 CSecureSocket::CreateCredentials: failed to get certificate nobody: 0x80092004"));
}

struct SPeerCase
{
    const char* pszSent; ///< by a peer that speaks no TLS and closes
    uint32_t dwClientStatus;
    uint32_t dwServerStatus;
};
class TlsPeerTest : public testing::TestWithParam<SPeerCase>
{};

TEST_P(TlsPeerTest, EndsTheHandshake)
{
    CPair pair;
    CSocket plainListener, peer;
    plainListener.Create(FAMILY_IPV4);
    plainListener.Bind("127.0.0.1");
    plainListener.Listen(1);
    CSocketEndPoint from;
    std::thread plain([&] {
        plainListener.Accept(peer, from);
        peer.Send(GetParam().pszSent);
        peer.Shutdown(1);
        char received[1000];
        while (StatusOf([&] { peer.Receive(received, sizeof(received), 0); }) == 0 && received[0] == 22)
            received[0] = 0; // a handshake record; read on, lest the close becomes a reset
    });
    EXPECT_EQ(StatusOf([&] { pair.client.Connect("127.0.0.1", plainListener.LocalEndPoint().Port(), "localhost"); }),
              GetParam().dwClientStatus);
    EXPECT_FALSE(pair.client.IsEstablished());
    pair.client.Close();
    plain.join();

    CSocket plainClient;
    plainClient.Create(FAMILY_IPV4);
    plainClient.Connect("127.0.0.1", pair.listener.LocalEndPoint().Port());
    plainClient.Send(GetParam().pszSent);
    plainClient.Shutdown(1);
    EXPECT_EQ(StatusOf([&] { pair.listener.Accept(pair.server, from); }), GetParam().dwServerStatus);
}
INSTANTIATE_TEST_SUITE_P(
    Peers, TlsPeerTest,
    testing::Values(SPeerCase{"", SEC_E_INTERNAL_ERROR, SEC_E_INCOMPLETE_MESSAGE},
                    SPeerCase{"\x16\x03\x03\x01", SEC_E_INTERNAL_ERROR, SEC_E_INCOMPLETE_MESSAGE},
                    SPeerCase{"250 said in clear\r\n", SEC_E_ILLEGAL_MESSAGE, SEC_E_ILLEGAL_MESSAGE},
                    SPeerCase{"\x16\x03\x03\xFF\xFF", SEC_E_ILLEGAL_MESSAGE, SEC_E_ILLEGAL_MESSAGE}));

TEST(TlsTest, FindsCertificatesByTheirNames)
{
    for (const char* pszName : {"good", "older", "expired"})
        CTlsWorld::Instance().Need(pszName);
    CCertificateStore store;
    EXPECT_EQ(StatusOf([&] { store.FindCertificate("good"); }), E_INVALIDARG);
    store.Open(false);
    EXPECT_EQ(StatusOf([&] { store.Open(false); }), E_INVALIDARG);
    EXPECT_EQ(store.FindCertificate("GOOD").CommonName(), "good"); // not the one that expires earlier
    EXPECT_EQ(store.FindCertificate("Older.Test").CommonName(), "Good");
    EXPECT_EQ(store.FindCertificate("\"test, inc.\", expired").CommonName(), "expired");
    EXPECT_NE(store.FindCertificate("localhost").CommonName(), "expired");
    EXPECT_EQ(StatusOf([&] { store.FindCertificate("goo"); }), CRYPT_E_NOT_FOUND);
    setenv("TOBIX_MACHINE_STORE", "/nowhere", 1);
    CCertificateStore machine;
    EXPECT_EQ(StatusOf([&] { machine.Open(true); }), 2u);
}

} // namespace
