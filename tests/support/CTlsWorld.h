#pragma once

#include "support/CDnsServer.h"
#include "support/CHttpServer.h"
#include "support/CTemporaryDirectory.h"

#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>

/// Two certificate authorities in a temporary directory, "ca" and "stranger", the personal store with what they issue
/// when it is asked for, and where the revocation list and the responder are. "ca" is the system's only root and the
/// store is the user's.
class CTlsWorld
{
public:
    static CTlsWorld& Instance()
    {
        static CTlsWorld world;
        return world;
    }
    /// <name>.pem in the store, for the host names "<name>.test" and "localhost".
    void Need(const std::string& strName)
    {
        const auto wanted = m_wanted.find(strName);
        if (wanted == m_wanted.end())
            return;
        Issue(strName, wanted->second);
        if (strName == "revoked")
            m_lists.Serve(Revoke(strName));
        if (strName == "denied") {
            Need("confirmed");
            m_dns.Tell("ocsp.test", CDnsServer::A, {CDnsServer::IPv4("127.0.0.1")});
            m_responder.Serve(Answer("confirmed", strName), "application/ocsp-response");
        }
        m_wanted.erase(strName);
    }
    void Run(const std::string& strCommand) const
    {
        const std::string strAll = "cd " + m_directory.Path().string() + " && ( " + strCommand + " ) 2>errors";
        if (std::system(strAll.c_str()) != 0)
            throw std::runtime_error(strCommand + ": " + m_directory.Read("errors"));
    }

private:
    struct SWanted
    {
        std::string strCommonName;
        int iDays;
        std::string strExtra = "";
        std::string strIssuer = "ca";
    };

    CTlsWorld()
    {
        setenv("SSL_CERT_FILE", (m_directory / "ca.pem").c_str(), 1);
        setenv("SSL_CERT_DIR", (m_directory / "none").c_str(), 1);
        setenv("TOBIX_USER_STORE", (m_directory / "store").c_str(), 1);
        unsetenv("http_proxy");
        m_directory.Write("ca.cnf", "[ca]\ndefault_ca=d\n[d]\ndatabase=index\ndefault_md=sha256\ndefault_crl_days=5\n");
        m_directory.Write("index", "");
        m_directory.Write("store/note.pem", "not a certificate");
        for (const std::string strName : {"ca", "stranger"})
            Run("openssl req -x509" + NEW_KEY + "-days 30 -keyout " + strName + ".key -out " + strName +
                ".pem -subj '/O=Test, Inc./CN=" + strName + "' -addext keyUsage=critical,keyCertSign,cRLSign");
    }
    void Issue(const std::string& strName, const SWanted& wanted) const
    {
        m_directory.Write(strName + ".ext",
                          "subjectAltName=DNS:" + strName + ".test,DNS:localhost\n" + wanted.strExtra);
        Run("n=" + strName + " i=" + wanted.strIssuer + " && openssl req -new" + NEW_KEY +
            "-keyout $n.key -out $n.csr -subj '/O=Test, Inc./CN=" + wanted.strCommonName +
            "' && openssl x509 -req -in $n.csr -CA $i.pem -CAkey $i.key -CAcreateserial -days " +
            std::to_string(wanted.iDays) + " -extfile $n.ext -out $n.crt && cat $n.crt $n.key > store/$n.pem");
    }
    /// The revocation list of "ca" in DER, with that certificate on it.
    std::string Revoke(const std::string& strName) const
    {
        Run(CA + "-revoke " + strName + ".crt -crl_reason keyCompromise && " + CA +
            "-gencrl | openssl crl -outform DER -out ca.crl");
        return m_directory.Read("ca.crl");
    }
    /// The responder's answer of "ca" about the two in DER: the second is revoked.
    std::string Answer(const std::string& strGood, const std::string& strRevoked) const
    {
        Revoke(strRevoked);
        Run(CA + "-valid " + strGood +
            ".crt && openssl ocsp -index index -CA ca.pem -issuer ca.pem -rsigner ca.pem -rkey ca.key -ndays 1 -cert " +
            strGood + ".crt -cert " + strRevoked + ".crt -respout answer.der");
        return m_directory.Read("answer.der");
    }

    const std::string NEW_KEY = " -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes ";
    const std::string CA = "openssl ca -config ca.cnf -cert ca.pem -keyfile ca.key ";
    CTemporaryDirectory m_directory;
    CDnsServer m_dns;
    CHttpServer m_lists;
    CHttpServer m_responder;
    CHttpServer m_silent; // takes questions and never answers
    const std::string m_strList = "crlDistributionPoints=URI:" + m_lists.Address();
    const std::string m_strResponder = "authorityInfoAccess=OCSP;URI:" + m_responder.Address("ocsp.test");
    std::map<std::string, SWanted> m_wanted = {
        {"good", {"good", 10}},
        {"older", {"Good", 5, "extendedKeyUsage=serverAuth"}},
        {"expired", {"expired", -1}},
        {"big", {"big", 10, "nsComment=" + std::string(60'000, 'x')}},
        {"strange", {"strange", 10, "", "stranger"}},
        {"rooted", {"rooted", 10, "", "stranger"}},
        {"client", {"client", 10, "extendedKeyUsage=clientAuth"}},
        {"listed", {"listed", 10, m_strList}},
        {"revoked", {"revoked", 10, m_strList}},
        {"confirmed", {"confirmed", 10, m_strResponder}},
        {"denied", {"denied", 10, m_strResponder}},
        {"elsewhere", {"elsewhere", 10, "crlDistributionPoints=URI:ldap://ldap.test/ca"}},
        {"silent", {"silent", 10, "authorityInfoAccess=OCSP;URI:" + m_silent.Address()}},
        {"patient", {"patient", 10, "authorityInfoAccess=OCSP;URI:" + m_silent.Address() + "\n" + m_strList}},
        {"offline", {"offline", 10, "authorityInfoAccess=OCSP;URI:http://127.0.0.1:1/"}},
    };
};
