#include "Platform/linux/tls/TlsSessionCache.h"

#include "Platform/CImmortal.h"
#include "Platform/Clock.h"

#include <algorithm>
#include <list>
#include <map>
#include <mutex>

namespace Platform {

namespace {

constexpr size_t MOST_BYTES = 8u << 20;
constexpr size_t MOST_PER_TARGET = 16; // as many connections may be on their way at once
constexpr size_t BESIDES = 1024;       // bytes that a session takes whatever is in it
constexpr uint64_t MILLIS_PER_SECOND = 1000;

/// What a session holds on to: itself and the certificates that came with it.
size_t BytesOf(const SSL& ssl, SSL_SESSION& session)
{
    int iBytes = std::max(i2d_SSL_SESSION(&session, nullptr), 0);
    const STACK_OF(X509)* const pChain = SSL_get_peer_cert_chain(&ssl);
    for (int i = 0; i < sk_X509_num(pChain); ++i)
        iBytes += std::max(i2d_X509(sk_X509_value(pChain, i), nullptr), 0);
    return BESIDES + static_cast<size_t>(iBytes);
}

/// In the order in which they came, the least recent first; these go when the bytes are too many.
class CSessionCache
{
public:
    static CSessionCache& Instance()
    {
        static CImmortal<CSessionCache> cache; // OpenSSL takes itself down before static objects
        return *cache;
    }

    void Keep(const std::string& strKey, CSslSessionPtr pSession, size_t nBytes)
    {
        const std::lock_guard lock(m_mutex);
        const auto nSeconds = static_cast<uint64_t>(std::max(SSL_SESSION_get_timeout(pSession.get()), 0L));
        m_kept.push_back({strKey, std::move(pSession), nBytes, TickCount() + nSeconds * MILLIS_PER_SECOND});
        m_targets[strKey].push_back(std::prev(m_kept.end()));
        m_nBytes += nBytes;
        if (m_targets[strKey].size() > MOST_PER_TARGET)
            Remove(m_targets[strKey].front());
        while (m_nBytes > MOST_BYTES)
            Remove(m_kept.begin());
    }

    CSslSessionPtr Take(const std::string& strKey)
    {
        const std::lock_guard lock(m_mutex);
        const auto it = m_targets.find(strKey);
        if (it == m_targets.end())
            return nullptr;
        const CKept::iterator latest = it->second.back();
        CSslSessionPtr pSession = IsOver(*latest) ? nullptr : std::move(latest->pSession);
        Remove(latest);
        return pSession;
    }

private:
    struct SKept
    {
        std::string strKey;
        CSslSessionPtr pSession;
        size_t nBytes;
        uint64_t nUntilTicks;
    };
    using CKept = std::list<SKept>;

    /// Also when the server's certificate is: it will have another one by now, which a new handshake shows.
    static bool IsOver(const SKept& kept)
    {
        const X509* const pServer = SSL_SESSION_get0_peer(kept.pSession.get());
        return kept.nUntilTicks <= TickCount() ||
               (pServer != nullptr && X509_cmp_current_time(X509_get0_notAfter(pServer)) < 0);
    }

    void Remove(CKept::iterator kept)
    {
        const auto target = m_targets.find(kept->strKey);
        std::erase(target->second, kept);
        if (target->second.empty())
            m_targets.erase(target);
        m_nBytes -= kept->nBytes;
        m_kept.erase(kept);
    }

    std::mutex m_mutex;
    CKept m_kept;
    std::map<std::string, std::vector<CKept::iterator>> m_targets; ///< none is empty; the latest at the end
    size_t m_nBytes = 0;
};

/// 1: the session is ours now.
int OnNewSession(SSL* pSsl, SSL_SESSION* pSession) noexcept
try {
    CSslSessionPtr pOffered(pSession);
    auto* const pOffers = static_cast<COfferedSessions*>(SSL_get_app_data(pSsl));
    if (pOffers != nullptr && SSL_SESSION_is_resumable(pSession) == 1)
        pOffers->Offer(*pSsl, std::move(pOffered));
    return 1;
} catch (const std::bad_alloc&) {
    return 1; // not kept
}

} // namespace

CSslSessionPtr TakeSession(const std::string& strKey) { return CSessionCache::Instance().Take(strKey); }

void KeepSessionsOf(SSL_CTX& context)
{
    SSL_CTX_set_session_cache_mode(&context, SSL_SESS_CACHE_CLIENT | SSL_SESS_CACHE_NO_INTERNAL);
    SSL_CTX_sess_set_new_cb(&context, &OnNewSession);
}

void COfferedSessions::Watch(SSL& ssl, const std::string& strKey)
{
    m_strKey = strKey;
    SSL_set_app_data(&ssl, this);
}

void COfferedSessions::Offer(SSL& ssl, CSslSessionPtr pSession)
{
    if (m_strKey.empty() || m_held.size() == MOST_PER_TARGET)
        return;
    const size_t nBytes = BytesOf(ssl, *pSession);
    m_held.push_back({std::move(pSession), nBytes});
    if (m_bAccepted)
        Accept();
}

void COfferedSessions::Accept()
{
    m_bAccepted = true;
    for (SOffer& offer : m_held)
        CSessionCache::Instance().Keep(m_strKey, std::move(offer.pSession), offer.nBytes);
    m_held.clear();
}

} // namespace Platform
