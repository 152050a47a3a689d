#pragma once

#include "support/CDnsServer.h"
#include "support/CHttpServer.h"
#include "support/CTestAuthority.h"

#include <map>
#include <string>

/// The authority, what it issues when it is asked for, and where its revocation list and its responder are.
class CTlsWorld
{
public:
    static CTlsWorld& Instance()
    {
        static CTlsWorld world;
        return world;
    }
    void Need(const std::string& strName)
    {
        const auto wanted = m_wanted.find(strName);
        if (wanted == m_wanted.end())
            return;
        const SWanted& certificate = wanted->second;
        m_authority.Issue(strName, certificate.strCommonName, certificate.iDays, certificate.strExtra,
                          certificate.strIssuer);
        if (strName == "revoked")
            m_lists.Serve(m_authority.Revoke(strName));
        if (strName == "denied") {
            Need("confirmed");
            m_dns.Tell("ocsp.test", CDnsServer::A, {CDnsServer::IPv4("127.0.0.1")});
            m_responder.Serve(m_authority.Answer("confirmed", strName), "application/ocsp-response");
        }
        m_wanted.erase(strName);
    }
    void Run(const std::string& strCommand) { m_authority.Run(strCommand); }

private:
    struct SWanted
    {
        std::string strCommonName;
        int iDays;
        std::string strExtra = "";
        std::string strIssuer = "ca";
    };
    CTestAuthority m_authority;
    CDnsServer m_dns;
    CHttpServer m_lists;
    CHttpServer m_responder;
    const std::string m_strList = "crlDistributionPoints=URI:" + m_lists.Address();
    const std::string m_strResponder = "authorityInfoAccess=OCSP;URI:" + m_responder.Address("ocsp.test");
    std::map<std::string, SWanted> m_wanted = {
        {"good", {"good", 10}},
        {"older", {"Good", 5, "extendedKeyUsage=serverAuth"}},
        {"expired", {"expired", -1}},
        {"strange", {"strange", 10, "", "stranger"}},
        {"rooted", {"rooted", 10, "", "stranger"}},
        {"client", {"client", 10, "extendedKeyUsage=clientAuth"}},
        {"listed", {"listed", 10, m_strList}},
        {"revoked", {"revoked", 10, m_strList}},
        {"confirmed", {"confirmed", 10, m_strResponder}},
        {"denied", {"denied", 10, m_strResponder}},
        {"elsewhere", {"elsewhere", 10, "crlDistributionPoints=URI:ldap://ldap.test/ca"}},
        {"offline", {"offline", 10, "authorityInfoAccess=OCSP;URI:http://127.0.0.1:1/"}},
    };
};
