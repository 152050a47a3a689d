#include "Platform/Clock.h"
#include "Platform/TlsChain.h"
#include "Platform/linux/tls/TlsHttp.h"
#include "Platform/linux/tls/TlsRevocationAnswers.h"

#include <algorithm>
#include <map>
#include <mutex>

namespace Platform {

namespace {

constexpr std::chrono::seconds TIME_FOR_ALL{5};
constexpr int64_t LONGEST_KEPT = 86'400; // seconds, however long an answer says that it is valid
constexpr int64_t OFFLINE_KEPT = 300;    // seconds until a silent source is asked again
constexpr size_t MOST_KEPT = 4096;

/// What was found out about certificates, by fingerprint. Any thread.
class CAnswerCache
{
public:
    bool Find(const std::string& strKey, SRevocationAnswer& answer)
    {
        const std::lock_guard lock(m_mutex);
        const auto it = m_answers.find(strKey);
        if (it == m_answers.end() || it->second.iValidUntil <= NowSeconds())
            return false;
        answer = it->second;
        return true;
    }
    void Keep(const std::string& strKey, SRevocationAnswer answer)
    {
        const std::lock_guard lock(m_mutex);
        const int64_t iNow = NowSeconds();
        answer.iValidUntil = std::min(answer.iValidUntil, iNow + LONGEST_KEPT);
        if (m_answers.size() >= MOST_KEPT)
            std::erase_if(m_answers, [iNow](const auto& entry) { return entry.second.iValidUntil <= iNow; });
        if (m_answers.size() >= MOST_KEPT)
            m_answers.erase(m_answers.begin());
        m_answers[strKey] = answer;
    }

private:
    std::mutex m_mutex;
    std::map<std::string, SRevocationAnswer> m_answers;
};

CAnswerCache& Cache()
{
    static CAnswerCache cache;
    return cache;
}

/// OCSP, which is small, before lists; the first that knows.
SRevocationAnswer AskSources(X509& certificate, X509& issuer, CHttpDeadline deadline)
{
    SRevocationAnswer answer;
    const std::vector<std::string> responders = OcspAddresses(certificate);
    const std::vector<std::string> lists = ListAddresses(certificate);
    if (responders.empty() && lists.empty())
        return {ERevocation::Good, 0, NowSeconds() + LONGEST_KEPT}; // nobody to ask

    std::vector<unsigned char> bytes;
    const std::vector<unsigned char> request = MakeOcspRequest(certificate, issuer);
    for (const std::string& strUrl : responders) {
        if (answer.verdict == ERevocation::Unknown && HttpAskOcsp(strUrl, request, deadline, bytes))
            answer = ReadOcspAnswer(bytes, certificate, issuer);
    }
    for (const std::string& strUrl : lists) {
        if (answer.verdict == ERevocation::Unknown && HttpGet(strUrl, deadline, bytes))
            answer = ReadRevocationList(bytes, certificate, issuer);
    }
    if (answer.verdict == ERevocation::Unknown)
        answer.iValidUntil = NowSeconds() + OFFLINE_KEPT;
    return answer;
}

SRevocationAnswer Ask(const STlsCertificateData& data, X509& issuer, CHttpDeadline deadline)
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
    if (answer.verdict == ERevocation::Unknown)
        answer = AskSources(*data.pCertificate, issuer, deadline);
    Cache().Keep(strKey, answer);
    return answer;
}

} // namespace

bool CheckTlsRevocation(const std::vector<CTlsCertificate>& certificates, STlsRevocationStatus& status)
{
    status = {0, E_INVALIDARG, 0};
    const auto isNone = [](const CTlsCertificate& certificate) { return certificate.IsEmpty(); };
    if (certificates.empty() || std::any_of(certificates.begin(), certificates.end(), isNone))
        return false;
    status.dwError = 0;
    const CHttpDeadline deadline = std::chrono::steady_clock::now() + TIME_FOR_ALL;
    for (size_t i = 0; i + 1 < certificates.size(); ++i) {
        X509& issuer = *certificates[i + 1].Data()->pCertificate;
        const SRevocationAnswer answer = Ask(*certificates[i].Data(), issuer, deadline);
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
