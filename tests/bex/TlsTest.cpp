#include "Bex/CCertificateException.h"
#include "Bex/CSecureSocket.h"
#include "Bex/CSecurityException.h"
#include "Bex/CSocketException.h"
#include "Platform/TlsChain.h"
#include "Platform/linux/tls/TlsHttp.h"
#include "support/Becomes.h"
#include "support/CLogRecorder.h"
#include "support/CTlsWorld.h"

#include <functional>
#include <gmock/gmock.h>
#include <thread>

using namespace Bex;
using namespace Platform;

namespace {

constexpr uint32_t ALL_CHECKED = 20; // seconds that a test waits at most for its peer

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
    for (uint32_t nReceived = 1; strAll.size() < nLength && nReceived > 0;) {
        nReceived = socket.Receive(buffer, sizeof(buffer), 0);
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
}

TEST(TlsTest, CarriesBytesBothWaysAndResumes)
{
    const std::string strLong(100'000, 'x');
    for (const uint32_t dwMask :
         {TLS_PROTOCOL_TLS1_0, TLS_PROTOCOL_TLS1_1, TLS_PROTOCOL_TLS1_2, TLS_PROTOCOL_TLS1_3, 0u}) {
        for (const bool bAgain : {false, true}) {
            SCOPED_TRACE(dwMask);
            CPair pair;
            pair.listener.SetProtocols(dwMask);
            pair.client.SetProtocols(dwMask);
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
}

TEST(TlsTest, TellsBothEndsThatNoVersionFits)
{
    CPair pair;
    pair.listener.SetProtocols(TLS_PROTOCOL_TLS1_3);
    pair.client.SetProtocols(TLS_PROTOCOL_TLS1_2);
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
    const std::string strSent = "0123456789abcdefghijABCDEFGHIJ";
    pair.server.Send(strSent.c_str());
    char piece[10];
    for (size_t nAt = 0; nAt < strSent.size(); nAt += sizeof(piece)) {
        ASSERT_EQ(pair.client.Receive(piece, sizeof(piece), 0), sizeof(piece));
        EXPECT_EQ(std::string(piece, sizeof(piece)), strSent.substr(nAt, sizeof(piece)));
        pair.client.SetLimit(Platform::CWaitLimit().For(0)); // reading from the connection would fail from now on
    }
}

TEST(TlsTest, SaysGoodbyeBeforeItCloses)
{
    CPair pair;
    pair.client.SetProtocols(TLS_PROTOCOL_TLS1_2);
    ASSERT_EQ(pair.Connect(), 0u);
    pair.client.Close();
    pair.server.SetSecure(false); // to see the records themselves
    constexpr char ALERT = 21;
    EXPECT_THAT(ReceiveAll(pair.server, 1000), testing::StartsWith(std::string{ALERT, 3, 3}));
    pair.server.SetSecure(true);
    pair.server.Close(); // cannot say goodbye any more, and closes all the same
    EXPECT_FALSE(pair.server.IsOpen());
}

std::string ElementOf(const std::string& strName, const std::string& strIssuer)
{
    return "6 Subject: \"Test, Inc.\", " + strName + "\n6 Issuer:  \"Test, Inc.\", " + strIssuer + "\n";
}
std::string ChainOf(const std::string& strError, const std::string& strName)
{
    return strError + "\n6 [0][0]\n" + ElementOf(strName, "ca") + "6 [0][1]\n" + ElementOf("ca", "ca");
}

TEST(TlsTest, JudgesTheServersCertificate)
{
    const std::string strInChain = " in pChainContext->rgpChain[0]";
    const std::string strInElement = strInChain + "->rgpElement[0]: dwErrorStatus=0x00000000 dwInfoStatus=0x00000004";
    const std::string strRevoked = "3 CERT_REVOCATION_STATUS.dwError: 0x80092010 .dwIndex: 0 .dwReason: 1";
    const std::string strOffline = "3 CERT_REVOCATION_STATUS.dwError: 0x80092013 .dwIndex: 0 .dwReason: 0\n";
    struct
    {
        const char* pszCertificate;
        const char* pszTarget;
        uint32_t dwStatus;
        std::string strLog; ///< before the line about VerifyCertificate
    } const cases[] = {
        {"good", "GOOD.test.", 0, ""},
        {"listed", "listed.test", 0, ""},
        {"good", "", SEC_E_WRONG_PRINCIPAL, ""},
        {"good", "\xC0\x80.test", SEC_E_WRONG_PRINCIPAL, ""},
        {"expired", "expired.test", SEC_E_CERT_EXPIRED, ""},
        {"good", "other.test", CERT_E_CN_NO_MATCH, ChainOf("3 error 0x800B010F" + strInElement, "good")},
        {"client", "[127.0.0.1]", CERT_E_WRONG_USAGE, ChainOf("3 error 0x800B0110" + strInElement, "client")},
        {"strange", "strange.test", CERT_E_CHAINING,
         "3 error 0x800B010A" + strInChain + ": dwErrorStatus=0x00010000 dwInfoStatus=0x00000000\n6 [0][0]\n" +
             ElementOf("strange", "stranger")},
        {"rooted", "rooted.test", CERT_E_UNTRUSTEDROOT,
         "3 error 0x800B0109" + strInChain + "->rgpElement[1]: dwErrorStatus=0x00000020 dwInfoStatus=0x00000008\n" +
             "6 [0][0]\n" + ElementOf("rooted", "stranger") + "6 [0][1]\n" + ElementOf("stranger", "stranger")},
        {"weak", "rooted.test", TRUST_E_CERT_SIGNATURE,
         ChainOf("3 error 0x80096004" + strInChain +
                     "->rgpElement[0]: dwErrorStatus=0x00000008 dwInfoStatus=0x00000004",
                 "weak")},
        {"revoked", "revoked.test", CRYPT_E_REVOKED, ChainOf(strRevoked, "revoked")},
        {"confirmed", "confirmed.test", 0, ""},
        {"denied", "denied.test", CRYPT_E_REVOKED, ChainOf(strRevoked, "denied")},
        {"elsewhere", "elsewhere.test", 0, strOffline},
        {"offline", "offline.test", 0, strOffline}};
    for (const char* pszName : {"revoked" /* the list */, "denied" /* the responder's answer */, "rooted"})
        CTlsWorld::Instance().Need(pszName);
    CTlsWorld::Instance().Run(
        "cat rooted.crt stranger.pem rooted.key > store/rooted.pem && "
        "openssl req -new -key rooted.key -subj '/O=Test, Inc./CN=weak' | openssl x509 -req -sha1 -CA ca.pem "
        "-CAkey ca.key -CAcreateserial -days 5 -extfile rooted.ext -out weak.crt && "
        "cat weak.crt rooted.key > store/weak.pem");
    for (const auto& one : cases) {
        SCOPED_TRACE(std::string(one.pszCertificate) + " for " + one.pszTarget);
        const auto strVerdict =
            CSimpleString::Formatted("3 CSecureSocket::VerifyCertificate returned 0x%08X\n", one.dwStatus);
        const std::string strLog = one.strLog + (one.dwStatus == 0 ? "" : strVerdict.Text());
        for (const auto& [bCheck, bAcceptAll] : {std::pair(true, false), {true, true}, {false, false}}) {
            CLogRecorder log;
            CPair pair(one.pszCertificate);
            if (one.dwStatus == TRUST_E_CERT_SIGNATURE)
                pair.listener.SetProtocols(TLS_PROTOCOL_TLS1_0 | TLS_PROTOCOL_TLS1_2); // where it may still be
            pair.client.SetCheckCertificate(bCheck);
            pair.client.m_bAcceptAll = bAcceptAll;
            const uint32_t dwExpected = bCheck && !bAcceptAll ? one.dwStatus : 0;
            EXPECT_EQ(pair.Connect(one.pszTarget), dwExpected);
            EXPECT_EQ(pair.client.IsEstablished(), dwExpected == 0);
            EXPECT_FALSE(pair.client.IsResumed() && bAcceptAll && one.dwStatus != 0); // the refused one's session
            EXPECT_EQ(log.Take(), bCheck ? strLog : "");
        }
    }
}

TEST(TlsTest, KeepsTheLatestSessionsWithinABound)
{
    const auto Resumes = [](const std::string& strTarget) {
        CPair pair("big");
        pair.client.SetProtocols(TLS_PROTOCOL_TLS1_2);
        pair.client.SetCheckCertificate(false);
        EXPECT_EQ(pair.Connect(strTarget.c_str()), 0u);
        return pair.client.IsResumed();
    };
    for (int i = 0; i < 80; ++i)
        EXPECT_FALSE(Resumes(std::to_string(i) + ".test"));
    EXPECT_TRUE(Resumes("79.test"));
    EXPECT_FALSE(Resumes("0.test"));
}

TEST(TlsTest, EndsWithAServerThatNeverStops)
{
    for (const auto& [strAnswer, strForEver] :
         {std::pair{"HTTP/1.0 200 OK\r\n", "a: b\r\n"}, {"HTTP/1.0 200 OK\r\n\r\n", "1234567890"}}) {
        CHttpServer server;
        server.Say(strAnswer, strForEver);
        std::vector<unsigned char> answer;
        const auto start = std::chrono::steady_clock::now();
        CEvent stop;
        std::jthread stopper([&stop] {
            SleepMillis(300);
            stop.Set();
        });
        EXPECT_FALSE(HttpGet(server.Address(), CWaitLimit(&stop.Waitable()), answer));
        EXPECT_FALSE(HttpGet(server.Address(), CWaitLimit().For(300), answer));
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    }
}

TEST(TlsTest, EndsWithAPeerThatUpdatesItsKeysForEver)
{
    CPair pair;
    const uint16_t wPort = pair.listener.LocalEndPoint().Port();
    pair.listener.Close();
    std::thread server([wPort] {
        CTlsWorld::Instance().Run(
            "yes K | timeout 20 openssl s_server -naccept 1 -cert good.crt -key good.key -accept " +
            std::to_string(wPort) + " >/dev/null || true");
    });
    CSecureSocket& client = pair.client;
    EXPECT_TRUE(Becomes([&] {
        if (client.IsEstablished())
            return true;
        client.Close();
        client.Create(FAMILY_IPV4);
        return StatusOf([&] { client.Connect("127.0.0.1", wPort, "localhost"); }) == 0;
    }));
    uint32_t dwStatus = 0;
    for (int i = 0; i < 5 && dwStatus == 0; ++i)
        dwStatus = StatusOf([&] { EXPECT_EQ(ReceiveAll(client, 1), ""); });
    EXPECT_EQ(dwStatus, SEC_E_ILLEGAL_MESSAGE);
    client.Close();
    server.join();
}

TEST(TlsTest, RemembersNoSilenceOfASourceForWhichNoTimeWasLeft)
{
    for (const char* pszName : {"silent", "patient", "revoked"})
        CTlsWorld::Instance().Need(pszName);
    CCertificateStore store;
    store.Open(false);
    const auto ChainOfStored = [&](const char* pszName) {
        STlsChain chain;
        EXPECT_EQ(BuildTlsChain(store.FindCertificate(pszName), false, CWaitLimit(), chain), SEC_E_OK);
        std::vector<CTlsCertificate> certificates;
        for (const STlsChainElement& element : chain.chains.at(0).elements)
            certificates.push_back(element.certificate);
        return certificates;
    };
    STlsRevocationStatus status;
    EXPECT_TRUE(CheckTlsRevocation(ChainOfStored("patient"), CWaitLimit().For(600), status)); // by its second source
    std::vector<CTlsCertificate> certificates = ChainOfStored("revoked");
    certificates.insert(certificates.begin(), store.FindCertificate("silent"));
    CheckTlsRevocation(certificates, CWaitLimit(), status); // the first source takes all the time
    EXPECT_FALSE(CheckTlsRevocation(certificates, CWaitLimit(), status));
    EXPECT_EQ(status.dwError, CRYPT_E_REVOKED);
    EXPECT_EQ(status.dwIndex, 1u);
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
    EXPECT_EQ(log.Take(), "3 CSecureSocket::CreateCredentials: failed to get certificate nobody: 0x80092004\n");
}

TEST(TlsTest, EndsTheHandshakeWithAPeerThatSpeaksNoTls)
{
    const std::string CLOSE_NOTIFICATION("\x15\x03\x03\0\x02\x01\0", 7);
    struct
    {
        std::string strSent; ///< by the peer, which closes then
        uint32_t dwClientStatus;
        uint32_t dwServerStatus;
    } const cases[] = {{"", SEC_E_INTERNAL_ERROR, SEC_E_INCOMPLETE_MESSAGE},
                       {"\x16\x03\x03\x01", SEC_E_INTERNAL_ERROR, SEC_E_INCOMPLETE_MESSAGE},
                       {"250 said in clear\r\n", SEC_E_ILLEGAL_MESSAGE, SEC_E_ILLEGAL_MESSAGE},
                       {"\x16\x03\x03\xFF\xFF", SEC_E_ILLEGAL_MESSAGE, SEC_E_ILLEGAL_MESSAGE},
                       {CLOSE_NOTIFICATION, SEC_I_CONTEXT_EXPIRED, SEC_E_ILLEGAL_MESSAGE}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.strSent);
        CPair pair, plain;
        plain.listener.SetSecure(false);
        CSocketEndPoint from;
        std::thread plainServer([&] {
            plain.listener.Accept(plain.server, from);
            plain.server.Send(one.strSent.data(), static_cast<uint32_t>(one.strSent.size()), 0);
            plain.server.Shutdown(1);
            char received[1000];
            while (StatusOf([&] { plain.server.Receive(received, sizeof(received), 0); }) == 0 && received[0] == 22)
                received[0] = 0; // a handshake record; read on, lest the close becomes a reset
        });
        const auto wPlainPort = plain.listener.LocalEndPoint().Port();
        EXPECT_EQ(StatusOf([&] { pair.client.Connect("127.0.0.1", wPlainPort, "localhost"); }), one.dwClientStatus);
        EXPECT_FALSE(pair.client.IsEstablished());
        pair.client.Close();
        plainServer.join();

        plain.client.SetSecure(false);
        plain.client.Connect("127.0.0.1", pair.listener.LocalEndPoint().Port());
        plain.client.Send(one.strSent.data(), static_cast<uint32_t>(one.strSent.size()), 0);
        plain.client.Shutdown(1);
        EXPECT_EQ(StatusOf([&] { pair.listener.Accept(pair.server, from); }), one.dwServerStatus);
    }
}

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
