#include "SMTPc/SDeliverySettings.h"

#include "Bex/CSecureSocket.h"
#include "Common/Globals.h"

#include <algorithm>

namespace {

constexpr int DEFAULT_TIMEOUT = 90; // seconds
constexpr int SHORTEST_TIMEOUT = 60;
constexpr int LONGEST_TIMEOUT = 1200;
constexpr uint32_t TIMEOUTS_PER_SESSION = 20;

} // namespace

SDeliverySettings SDeliverySettings::FromConfiguration()
{
    const Bex::CConfigFile& config = Config();
    SDeliverySettings settings;
    settings.strHelloName = config.GetString("FQDN");
    settings.strInterface = config.GetString("Interface");
    settings.bUseTls = config.GetInt("UseTLS", 1) != 0;
    settings.bLowerRecipientDomain = config.GetInt("Rcpt.To.DomainPart.ToLower", 0) != 0;
    settings.dwProtocols = Bex::CSecureSocket::ParseCipherProtocols(config.GetString("CipherProtocols"));
    const int iTimeout = std::clamp(config.GetInt("TimeOut", DEFAULT_TIMEOUT), SHORTEST_TIMEOUT, LONGEST_TIMEOUT);
    settings.dwTimeout = static_cast<uint32_t>(iTimeout);
    settings.dwSessionLimit = TIMEOUTS_PER_SESSION * settings.dwTimeout;
    settings.iDebugLevel = config.GetInt("DebugLogging", 0);
    return settings;
}
