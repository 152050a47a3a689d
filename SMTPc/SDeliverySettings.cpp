#include "SMTPc/SDeliverySettings.h"

#include "Bex/CSecureSocket.h"
#include "Common/Globals.h"

#include <algorithm>

namespace {

constexpr int SHORTEST_TIMEOUT = 60; // seconds
constexpr int LONGEST_TIMEOUT = 1200;
constexpr uint32_t TIMEOUTS_PER_SESSION = 20;

} // namespace

SDeliverySettings SDeliverySettings::FromConfiguration()
{
    const Bex::CConfigFile& config = Config();
    SDeliverySettings settings;
    settings.strHelloName = config.GetString(Keys::FQDN);
    settings.strInterface = config.GetString(Keys::INTERFACE);
    settings.bUseTls = config.GetFlag(Keys::USE_TLS);
    settings.bLowerRecipientDomain = config.GetFlag(Keys::RCPT_TO_DOMAIN_TO_LOWER);
    settings.dwProtocols = Bex::CSecureSocket::ParseCipherProtocols(config.GetString(Keys::CIPHER_PROTOCOLS));
    const int iTimeout = std::clamp(config.GetInt(Keys::TIME_OUT), SHORTEST_TIMEOUT, LONGEST_TIMEOUT);
    settings.dwTimeout = static_cast<uint32_t>(iTimeout);
    settings.dwSessionLimit = TIMEOUTS_PER_SESSION * settings.dwTimeout;
    settings.iDebugLevel = config.GetInt(Keys::DEBUG_LOGGING);
    return settings;
}
