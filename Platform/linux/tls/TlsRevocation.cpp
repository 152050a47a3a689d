#include "Platform/Clock.h"
#include "Platform/TlsChain.h"
#include "Platform/linux/tls/TlsHttp.h"
#include "Platform/linux/tls/TlsRevocationAnswers.h"

#include <algorithm>
#include <map>
#include <mutex>

namespace Platform {

namespace {

constexpr uint64_t TIME_FOR_ALL = 5000;  // milliseconds
constexpr int64_t LONGEST_KEPT = 86'400; // seconds, however long an answer says that it is valid
constexpr int64_t OFFLINE_KEPT = 300;    // seconds until a silent source is asked again
constexpr uint64_t MILLIS_PER_SECOND = 1000;
constexpr size_t MOST_KEPT = 4096;

/// What was found out about certificates, by fingerprint. Any thread.
class CAnswerCache
{
public:
    bool Find(const std::string& strKey, SRevocationAnswer& answer)
    {
        const std::lock_guard lock(m_mutex);
        const auto it = m_answers.find(strKey);
        if (it == m_answers.end() || it->second.nUntilTicks <= TickCount())
            return false;
        answer = it->second.answer;
        return true;
    }
    /// The time may be set back meanwhile: what is kept ages by the ticks.
    void Keep(const std::string& strKey, const SRevocationAnswer& answer)
    {
        const std::lock_guard lock(m_mutex);
        const auto nSeconds =
            static_cast<uint64_t>(std::clamp<int64_t>(answer.iValidUntil - NowSeconds(), 0, LONGEST_KEPT));
        const uint64_t nNow = TickCount();
        if (m_answers.size() >= MOST_KEPT)
            std::erase_if(m_answers, [nNow](const auto& entry) { return entry.second.nUntilTicks <= nNow; });
        if (m_answers.size() >= MOST_KEPT)
            m_answers.erase(m_answers.begin());
        m_answers[strKey] = {answer, nNow + nSeconds * MILLIS_PER_SECOND};
    }

private:
    struct SKept
    {
        SRevocationAnswer answer;
        uint64_t nUntilTicks;
    };
    std::mutex m_mutex;
    std::map<std::string, SKept> m_answers;
};

CAnswerCache& Cache()
{
    static CAnswerCache cache;
    return cache;
}

/// OCSP, which is small, before lists; the first that knows. Each source gets its share of the time that is left, so
/// that a silent one does not keep the next from being asked.
SRevocationAnswer AskSources(X509& certificate, X509& issuer, const CWaitLimit& limit)
{
    SRevocationAnswer answer;
    const std::vector<std::string> responders = OcspAddresses(certificate);
    const std::vector<std::string> lists = ListAddresses(certificate);
    if (responders.empty() && lists.empty())
        return {ERevocation::Good, 0, NowSeconds() + LONGEST_KEPT}; // nobody to ask

    uint64_t nToAsk = responders.size() + lists.size();
    const auto Share = [&] { return limit.AtMost(limit.MillisLeft() / nToAsk--); };
    std::vector<unsigned char> bytes;
    const std::vector<unsigned char> request = MakeOcspRequest(certificate, issuer);
    for (const std::string& strUrl : responders) {
        if (answer.verdict == ERevocation::Unknown && HttpAskOcsp(strUrl, request, Share(), bytes))
            answer = ReadOcspAnswer(bytes, certificate, issuer);
    }
    for (const std::string& strUrl : lists) {
        if (answer.verdict == ERevocation::Unknown && HttpGet(strUrl, Share(), bytes))
            answer = ReadRevocationList(bytes, certificate, issuer);
    }
    if (answer.verdict == ERevocation::Unknown)
        answer.iValidUntil = NowSeconds() + OFFLINE_KEPT;
    return answer;
}

SRevocationAnswer Ask(const STlsCertificateData& data, X509& issuer, const CWaitLimit& limit)
{
    const std::string strKey = Fingerprint(*data.pCertificate) + Fingerprint(issuer);
    SRevocationAnswer answer;
    if (Cache().Find(strKey, answer) && answer.verdict != ERevocation::Unknown)
        return answer;
    const bool bSilent = answer.iValidUntil > 0;
    if (!data.ocspAnswer.empty())
        answer = ReadOcspAnswer(data.ocspAnswer, *data.pCertificate, issuer);
    if (answer.verdict == ERevocation::Unknown && bSilent)
        return answer;
    const bool bTimeEnough = limit.MillisLeft() > TIME_FOR_ALL / 2;
    if (answer.verdict == ERevocation::Unknown)
        answer = AskSources(*data.pCertificate, issuer, limit);
    const bool bSilence = (bTimeEnough || limit.HasTimeLeft()) && !limit.IsStopped(); // else none had time to answer
    if (answer.verdict != ERevocation::Unknown || bSilence)
        Cache().Keep(strKey, answer);
    return answer;
}

} // namespace

bool CheckTlsRevocation(const std::vector<CTlsCertificate>& certificates, const CWaitLimit& caller,
                        STlsRevocationStatus& status)
{
    status = {0, E_INVALIDARG, 0};
    const auto isNone = [](const CTlsCertificate& certificate) { return certificate.IsEmpty(); };
    if (certificates.empty() || std::any_of(certificates.begin(), certificates.end(), isNone))
        return false;
    status.dwError = 0;
    const CWaitLimit limit = caller.AtMost(TIME_FOR_ALL);
    for (size_t i = 0; i + 1 < certificates.size(); ++i) {
        X509& issuer = *certificates[i + 1].Data()->pCertificate;
        const SRevocationAnswer answer = Ask(*certificates[i].Data(), issuer, limit);
        if (answer.verdict == ERevocation::Revoked) {
            status = {static_cast<uint32_t>(i), CRYPT_E_REVOKED, answer.dwReason};
            return false;
        }
        if (answer.verdict == ERevocation::Unknown && status.dwError == 0)
            status = {static_cast<uint32_t>(i), CRYPT_E_REVOCATION_OFFLINE, 0};
    }
    return status.dwError == 0;
}

} // namespace Platform
