#include "Bex/CSecureSocket.h"
#include "Bex/CSysLog.h"
#include "Bex/TextFunctions.h"
#include "Common/CConfigCheck.h"
#include "Common/Globals.h"
#include "Common/IsValidAddress.h"
#include "Control/CControlError.h"
#include "Control/CheckSteps.h"
#include "Control/LoadConfiguration.h"
#include "Control/TellProblems.h"
#include "Platform/FileSystem.h"
#include "Platform/SocketAddress.h"
#include "Platform/TlsChain.h"
#include "SMTPc/SDeliverySettings.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr int HIGHEST_PORT = 65'535;
constexpr size_t LEAST_CHALLENGE = 5;
constexpr size_t LONGEST_SOCKET_NAME = 107;

/// Tells of values that the configuration has, line by line.
class CValueChecks
{
public:
    CValueChecks(const CConfigCheck& config, CFindings& findings) : m_config(config), m_findings(findings) {}

    void Run()
    {
        for (const Bex::CNumberKey& key : {Keys::LOG_PORT, Keys::TRAFFIC_LOG_PORT})
            Require(key, m_config.GetInt(key) > 0 && m_config.GetInt(key) <= HIGHEST_PORT, "is no port, 1 to 65535");
        for (const Bex::CTextKey& key : {Keys::LOG_FACILITY, Keys::TRAFFIC_LOG_FACILITY})
            Require(key, Bex::CSysLog::IsFacility(m_config.GetString(key)),
                    "is no syslog facility, and counts as mail");
        for (const Bex::CTextKey& key : {Keys::POSTMASTER, Keys::POSTMASTER_FROM, Keys::POSTMASTER_TO})
            Require(key, IsEmptyOr(key, IsValidAddress), "is no address");
        Require(Keys::INTERFACE, IsEmptyOr(Keys::INTERFACE, IsAddressOfHost), "is no IPv4 or IPv6 address");
        Require(Keys::CIPHER_PROTOCOLS, IsEmptyOr(Keys::CIPHER_PROTOCOLS, NamesProtocols),
                "has a name that is no protocol, which is passed over; parted by commas, without blanks");
        if (m_config.GetFlag(Keys::USE_TLS) && !Platform::HasTrustedRoots())
            m_findings.Warn(PlaceOf(Keys::USE_TLS),
                            "no certificate authority is trusted, so no server's certificate is "
                            "good; is the package ca-certificates installed?");
        CheckTimeOut();
        CheckSRS();
        const Bex::CSimpleString strSocket = m_config.GetPath(Keys::CONTROL_SOCKET);
        if (strSocket.Length() > LONGEST_SOCKET_NAME)
            m_findings.Error(PlaceOf(Keys::CONTROL_SOCKET),
                             "Control.Socket is longer than 107 bytes, as no socket may be");
    }

private:
    using FTest = bool (*)(std::string_view);

    static bool IsAddressOfHost(std::string_view text)
    {
        Platform::SSocketAddress address;
        const std::string strText(text);
        return Platform::ParseAddress(Platform::FAMILY_IPV4, strText.c_str(), address) ||
               Platform::ParseAddress(Platform::FAMILY_IPV6, strText.c_str(), address);
    }
    static bool NamesProtocols(std::string_view text)
    {
        Bex::CList<Bex::CSimpleString> names(false);
        Bex::Tokenize(text, ",", names, false);
        bool bAll = true;
        for (const Bex::CSimpleString& strName : names)
            bAll = bAll && Bex::CSecureSocket::ParseCipherProtocols(strName) != 0;
        return bAll;
    }

    CFindings::SPlace PlaceOf(const Bex::CConfigKey& key) const
    {
        return {m_config.FileName().Text(), m_config.LineOf(key.Name())};
    }
    bool IsEmptyOr(const Bex::CTextKey& key, FTest Test) const
    {
        const Bex::CSimpleString strValue = m_config.GetString(key);
        return strValue.IsEmpty() || Test(strValue);
    }
    /// Of a key that the file has itself.
    void Require(const Bex::CConfigKey& key, bool bGood, const char* pszOtherwise) const
    {
        if (!bGood && m_config.LineOf(key.Name()) != 0)
            m_findings.Warn(PlaceOf(key), std::string(key.Name()) + ": " +
                                              Quoted(m_config.CConfigFile::GetString(key.Name()).View()) + " " +
                                              pszOtherwise);
    }
    void CheckTimeOut() const
    {
        const auto dwCounts = SDeliverySettings::FromConfiguration().dwTimeout;
        if (static_cast<int64_t>(dwCounts) != m_config.GetInt(Keys::TIME_OUT))
            m_findings.Warn(PlaceOf(Keys::TIME_OUT),
                            "TimeOut counts as " + std::to_string(dwCounts) + " seconds: it may be 60 to 1200");
    }
    void CheckSRS() const
    {
        const Bex::CSimpleString strChallenge = m_config.GetString(Keys::SRS_CHALLENGE);
        const bool bDomain = !m_config.GetString(Keys::SRS_DOMAIN).IsEmpty();
        if (bDomain == strChallenge.IsEmpty())
            m_findings.Warn(PlaceOf(bDomain ? Keys::SRS_DOMAIN : Keys::SRS_CHALLENGE),
                            "senders are rewritten only when both SRS.Domain and SRS.Challenge are set");
        else if (bDomain && strChallenge.Length() < LEAST_CHALLENGE)
            m_findings.Warn(PlaceOf(Keys::SRS_CHALLENGE), "SRS.Challenge is easy to guess: at least five characters");
    }

    const CConfigCheck& m_config;
    CFindings& m_findings;
};

} // namespace

bool CheckConfiguration(const Bex::CSimpleString& strPath, CFindings& findings)
{
    CConfigCheck config(Keys::TABLE);
    const Platform::SError error = LoadError(config, strPath);
    if (error.dwSysError != 0 || LoadError(Config(), strPath).dwSysError != 0) {
        findings.Error({strPath.Text()}, "the configuration cannot be read: " + ErrorText(error));
        return false;
    }
    TellProblems(config, Keys::TABLE, findings);
    CValueChecks(config, findings).Run();
    return true;
}
