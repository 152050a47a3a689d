#pragma once

#include "support/CHttpServer.h"
#include "support/CTestAuthority.h"

#include <map>
#include <string>

/// The authority, what it issues when it is asked for, and where its revocation list is.
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
        m_wanted.erase(wanted);
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
    CHttpServer m_lists;
    const std::string m_strList = "crlDistributionPoints=URI:" + m_lists.Address();
    std::map<std::string, SWanted> m_wanted = {
        {"good", {"good", 10}},
        {"older", {"Good", 5, "extendedKeyUsage=serverAuth"}},
        {"expired", {"expired", -1}},
        {"strange", {"strange", 10, "", "stranger"}},
        {"rooted", {"rooted", 10, "", "stranger"}},
        {"client", {"client", 10, "extendedKeyUsage=clientAuth"}},
        {"listed", {"listed", 10, m_strList}},
        {"revoked", {"revoked", 10, m_strList}},
        {"offline", {"offline", 10, "authorityInfoAccess=OCSP;URI:http://127.0.0.1:1/"}},
    };
};
