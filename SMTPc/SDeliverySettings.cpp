#include "SMTPc/SDeliverySettings.h"

#include "Bex/CSecureSocket.h"
#include "Common/Globals.h"

#include <algorithm>

namespace {

constexpr int SHORTEST_TIMEOUT = 60; // seconds
constexpr int LONGEST_TIMEOUT = 1200;
constexpr uint32_t TIMEOUTS_PER_SESSION = 20;
constexpr uint32_t SECONDS_PER_MINUTE = 60;
constexpr uint32_t RETRIES_IN_SILENCE = 2;
constexpr int LONGEST_RETRY = 10'080; // minutes that count, a week

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
    const int iRetry = std::max(config.GetInt(Keys::AUTO_TRANS_RETRY_MIN), config.GetInt(Keys::AUTO_TRANS_RETRY_MAX));
    // Retries may follow each other at once, but each takes its time.
    const uint32_t dwRetry = SECONDS_PER_MINUTE * static_cast<uint32_t>(std::clamp(iRetry, 0, LONGEST_RETRY));
    settings.dwSilenceKept = RETRIES_IN_SILENCE * (dwRetry + settings.dwTimeout);
    settings.nMailsPerConnection = static_cast<unsigned>(std::max(1, config.GetInt(Keys::CONNECTION_MAILS)));
    settings.bPipelining = config.GetFlag(Keys::CONNECTION_PIPELINING);
    settings.iDebugLevel = config.GetInt(Keys::DEBUG_LOGGING);
    return settings;
}
