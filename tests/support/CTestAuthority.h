#pragma once

#include "support/CTemporaryDirectory.h"

#include <cstdlib>
#include <stdexcept>
#include <string>

/// Two certificate authorities in a temporary directory, "ca" and "stranger", and the personal store that is filled
/// with what they issue. For as long as it lives, "ca" is the system's only root and the store is the user's.
class CTestAuthority
{
public:
    CTestAuthority()
    {
        setenv("SSL_CERT_FILE", (m_directory / "ca.pem").c_str(), 1);
        setenv("SSL_CERT_DIR", (m_directory / "none").c_str(), 1);
        setenv("TOBIX_USER_STORE", (m_directory / "store").c_str(), 1);
        unsetenv("http_proxy");
        m_directory.Write("ca.cnf", "[ca]\ndefault_ca=d\n[d]\ndatabase=index\ndefault_md=sha256\ndefault_crl_days=5\n");
        m_directory.Write("index", "");
        m_directory.Write("store/note.pem", "not a certificate");
        for (const std::string strName : {"ca", "stranger"})
            Run("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 30 -keyout " + strName +
                ".key -out " + strName + ".pem -subj '/O=Test, Inc./CN=" + strName +
                "' -addext keyUsage=critical,keyCertSign,cRLSign");
    }

    /// <name>.pem in the store, for the host names "<name>.test" and its own.
    void Issue(const std::string& strName, const std::string& strCommonName, int iDays,
               const std::string& strExtra = "", const std::string& strIssuer = "ca")
    {
        const std::string strStem = m_directory / strName;
        m_directory.Write(strName + ".ext", "subjectAltName=DNS:" + strName + ".test,DNS:localhost\n" + strExtra);
        Run("openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout " + strName + ".key -out " +
            strName + ".csr -subj '/O=Test, Inc./CN=" + strCommonName + "' && openssl x509 -req -in " + strName +
            ".csr -CA " + strIssuer + ".pem -CAkey " + strIssuer + ".key -CAcreateserial -days " +
            std::to_string(iDays) + " -extfile " + strName + ".ext -out " + strName + ".crt && cat " + strName +
            ".crt " + strName + ".key > store/" + strName + ".pem");
    }

    /// The revocation list of "ca" in DER, with that certificate on it.
    std::string Revoke(const std::string& strName)
    {
        const std::string strCa = "openssl ca -config ca.cnf -cert ca.pem -keyfile ca.key ";
        Run(strCa + "-revoke " + strName + ".crt -crl_reason keyCompromise && " + strCa +
            "-gencrl | openssl crl -outform DER -out ca.crl");
        return m_directory.Read("ca.crl");
    }

    /// The responder's answer of "ca" about the two in DER: the second is revoked.
    std::string Answer(const std::string& strGood, const std::string& strRevoked)
    {
        Revoke(strRevoked);
        Run("openssl ca -config ca.cnf -cert ca.pem -keyfile ca.key -valid " + strGood +
            ".crt && openssl ocsp -index index -CA ca.pem -issuer ca.pem -rsigner ca.pem -rkey ca.key -ndays 1 -cert " +
            strGood + ".crt -cert " + strRevoked + ".crt -respout answer.der");
        return m_directory.Read("answer.der");
    }

    void Run(const std::string& strCommand) const
    {
        const std::string strAll = "cd " + m_directory.Path().string() + " && ( " + strCommand + " ) 2>errors";
        if (std::system(strAll.c_str()) != 0)
            throw std::runtime_error(strCommand + ": " + m_directory.Read("errors"));
    }

private:
    CTemporaryDirectory m_directory;
};
