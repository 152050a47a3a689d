#include "Platform/linux/tls/TlsSessionCache.h"

#include "Platform/CImmortal.h"
#include "Platform/Clock.h"

#include <map>
#include <mutex>

namespace Platform {

namespace {

constexpr size_t MOST_TARGETS = 512;
constexpr size_t MOST_PER_TARGET = 16; // as many connections may be on their way at once

/// Also when the server's certificate is: it will have another one by now, which a new handshake shows.
bool IsOver(SSL_SESSION& session)
{
    const X509* const pServer = SSL_SESSION_get0_peer(&session);
    return SSL_SESSION_get_time(&session) + SSL_SESSION_get_timeout(&session) <= NowSeconds() ||
           (pServer != nullptr && X509_cmp_current_time(X509_get0_notAfter(pServer)) < 0);
}

class CSessionCache
{
public:
    static CSessionCache& Instance()
    {
        static CImmortal<CSessionCache> cache; // OpenSSL takes itself down before static objects
        return *cache;
    }

    void Keep(const std::string& strKey, CSslSessionPtr pSession)
    {
        const std::lock_guard lock(m_mutex);
        if (m_targets.size() >= MOST_TARGETS && !m_targets.contains(strKey))
            MakeRoom();
        auto& sessions = m_targets[strKey];
        if (sessions.size() == MOST_PER_TARGET)
            sessions.erase(sessions.begin());
        sessions.push_back(std::move(pSession));
    }

    CSslSessionPtr Take(const std::string& strKey)
    {
        const std::lock_guard lock(m_mutex);
        const auto it = m_targets.find(strKey);
        if (it == m_targets.end() || it->second.empty())
            return nullptr;
        CSslSessionPtr pSession = std::move(it->second.back());
        it->second.pop_back();
        if (it->second.empty())
            m_targets.erase(it);
        return IsOver(*pSession) ? nullptr : std::move(pSession);
    }

private:
    void MakeRoom()
    {
        std::erase_if(m_targets,
                      [](const auto& target) { return target.second.empty() || IsOver(*target.second.back()); });
        if (m_targets.size() >= MOST_TARGETS)
            m_targets.erase(m_targets.begin());
    }

    std::mutex m_mutex;
    std::map<std::string, std::vector<CSslSessionPtr>> m_targets;
};

/// 1: the session is ours now.
int OnNewSession(SSL* pSsl, SSL_SESSION* pSession) noexcept
try {
    CSslSessionPtr pOffered(pSession);
    const auto* const pKey = static_cast<const std::string*>(SSL_get_app_data(pSsl));
    if (pKey != nullptr && SSL_SESSION_is_resumable(pSession) == 1)
        KeepSession(*pKey, std::move(pOffered));
    return 1;
} catch (const std::bad_alloc&) {
    return 1; // not kept
}

} // namespace

void KeepSession(const std::string& strKey, CSslSessionPtr pSession)
{
    CSessionCache::Instance().Keep(strKey, std::move(pSession));
}

CSslSessionPtr TakeSession(const std::string& strKey) { return CSessionCache::Instance().Take(strKey); }

void KeepSessionsOf(SSL_CTX& context)
{
    SSL_CTX_set_session_cache_mode(&context, SSL_SESS_CACHE_CLIENT | SSL_SESS_CACHE_NO_INTERNAL);
    SSL_CTX_sess_set_new_cb(&context, &OnNewSession);
}

void SetSessionKey(SSL& ssl, const std::string& strKey)
{
    SSL_set_app_data(&ssl, const_cast<std::string*>(&strKey)); // only ever read
}

} // namespace Platform
