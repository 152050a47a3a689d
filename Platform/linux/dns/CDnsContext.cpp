#include "Platform/linux/dns/CDnsContext.h"

#include "Platform/CNativeThread.h"
#include "Platform/linux/base/CSignalsBlocked.h"
#include "Platform/linux/thread/PollWithin.h"

#include <array>
#include <poll.h>
#include <sys/eventfd.h>
#include <unbound.h>

namespace Platform {

namespace {

constexpr int CLASS_INTERNET = 1;
constexpr uint32_t RESPONSE_CODES = 9000;
constexpr size_t DESCRIPTORS = 32; ///< more than it opens while others open some, too

struct SOption
{
    const char* pszName;
    const char* pszValue;
};

constexpr SOption OPTIONS[] = {
    {"module-config:", "iterator"},       // the name servers validate; a failure of theirs stays one
    {"do-not-query-localhost:", "no"},    // where most stubs listen
    {"rrset-roundrobin:", "no"},          // the order of the answer means something to its zone
    {"infra-host-ttl:", "5"},             // seconds: a name server that was away is asked again soon
    {"local-zone:", "test. transparent"}, // networks of their own use these, and their servers know better
    {"local-zone:", "home.arpa. transparent"},
    {"local-zone:", "invalid. transparent"},
};

struct SFreeResult
{
    void operator()(ub_result* pResult) const { ub_resolve_free(pResult); }
};
using COwnedResult = std::unique_ptr<ub_result, SFreeResult>;

uint32_t StatusOfError(int iError)
{
    switch (iError) {
    case UB_NOERROR:
        return DNS_OK;
    case UB_NOMEM:
        return DNS_NO_MEMORY;
    case UB_SYNTAX:
        return DNS_BAD_NAME;
    default:
        return DNS_SERVER_FAILED;
    }
}

uint32_t StatusOf(const ub_result& result)
{
    if (result.havedata)
        return DNS_OK;
    if (result.nxdomain)
        return DNS_NO_SUCH_NAME;
    return result.rcode == 0 ? static_cast<uint32_t>(DNS_NO_RECORDS)
                             : RESPONSE_CODES + static_cast<uint32_t>(result.rcode);
}

/// The library does not tell that it could not have its thread: it would take every question and answer none, and crash
/// when it is taken down. Without its two pairs of sockets it leaves memory behind, and when it cannot have those of
/// its thread's loop it ends the process.
bool CanHaveItsMeans()
{
    std::array<CDescriptor, DESCRIPTORS> reserved;
    for (CDescriptor& descriptor : reserved) {
        descriptor = CDescriptor(eventfd(0, EFD_CLOEXEC));
        if (!descriptor.IsValid())
            return false;
    }
    const auto pThread = CNativeThread::Create([](void*) {}, nullptr);
    if (pThread != nullptr)
        pThread->Join();
    return pThread != nullptr;
}

} // namespace

/// Where the answer to one question arrives. Shared by the thread that waits and the one that fetches.
struct CDnsContext::SAnswer
{
    CDescriptor arrived{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    std::mutex mutex;
    std::vector<std::string> records;
    uint32_t dwStatus = DNS_SERVER_FAILED;

    void Take(int iError, const ub_result* pResult)
    {
        const std::lock_guard lock(mutex);
        try {
            dwStatus = pResult != nullptr && iError == UB_NOERROR ? StatusOf(*pResult) : StatusOfError(iError);
            for (int iRecord = 0; dwStatus == DNS_OK && pResult->data[iRecord] != nullptr; ++iRecord)
                records.emplace_back(pResult->data[iRecord], static_cast<size_t>(pResult->len[iRecord]));
        } catch (const std::bad_alloc&) {
            dwStatus = DNS_NO_MEMORY; // nothing may be raised through the library
        }
        eventfd_write(arrived.Get(), 1);
    }
};

CDnsContext::CDnsContext(const SResolverFile& file)
    : m_file(file), m_config(ReadResolverConfig(file)), m_pContext(CanHaveItsMeans() ? ub_ctx_create() : nullptr)
{
    if (m_pContext == nullptr)
        m_dwStatus = DNS_NO_MEMORY;
    else if (!Configure())
        m_dwStatus = DNS_NO_SERVER;
}

CDnsContext::~CDnsContext()
{
    if (m_pContext != nullptr)
        ub_ctx_delete(m_pContext);
}

bool CDnsContext::Configure()
{
    bool bDone = ub_ctx_debugout(m_pContext, nullptr) == 0 && ub_ctx_async(m_pContext, 1) == 0;
    for (const SOption& option : OPTIONS)
        bDone = ub_ctx_set_option(m_pContext, option.pszName, option.pszValue) == 0 && bDone;
    // Without any the library would ask the root servers itself; one that is written wrongly leaves the others.
    size_t nServers = 0;
    for (const std::string& strServer : m_config.servers)
        nServers += ub_ctx_set_fwd(m_pContext, strServer.c_str()) == 0 ? 1 : 0;
    return bDone && nServers > 0;
}

std::shared_ptr<CDnsContext> CDnsContext::Current()
{
    static std::mutex s_mutex;
    static std::shared_ptr<CDnsContext> s_pCurrent;
    std::shared_ptr<CDnsContext> pFormer; // goes after the lock: it waits for the library's thread
    const SResolverFile file = CurrentResolverFile();
    const std::lock_guard lock(s_mutex);
    if (!s_pCurrent || !s_pCurrent->IsWhole() || s_pCurrent->m_file != file) {
        pFormer = std::move(s_pCurrent);
        s_pCurrent = std::make_shared<CDnsContext>(file);
    }
    return s_pCurrent;
}

uint32_t CDnsContext::Query(const std::string& strName, EDnsType type, const CWaitLimit& limit,
                            std::vector<std::string>& records)
{
    if (m_dwStatus != DNS_OK)
        return m_dwStatus;
    const auto pAnswer = std::make_shared<SAnswer>();
    if (!pAnswer->arrived.IsValid())
        return DNS_NO_MEMORY;
    auto pArgument = std::make_unique<std::shared_ptr<SAnswer>>(pAnswer);
    const auto onAnswer = [](void* pArrivedFor, int iError, ub_result* pResult) {
        const std::unique_ptr<std::shared_ptr<SAnswer>> pOwner(static_cast<std::shared_ptr<SAnswer>*>(pArrivedFor));
        const COwnedResult pOwned(pResult);
        (*pOwner)->Take(iError, pResult);
    };
    int iQuestion = 0;
    const int iError = [&] {
        const std::lock_guard lock(m_beginning);
        if (!m_bBegun && !CanHaveItsMeans())
            return static_cast<int>(UB_NOMEM);
        m_bBegun = true;
        const CSignalsBlocked blocked; // for the threads that the library starts
        return ub_resolve_async(m_pContext, strName.c_str(), static_cast<int>(type), CLASS_INTERNET, pArgument.get(),
                                onAnswer, &iQuestion);
    }();
    if (iError != UB_NOERROR)
        return StatusOfError(iError);
    std::shared_ptr<SAnswer>* pHandedOver = pArgument.release();
    const uint32_t dwWaited = Wait(*pAnswer, limit);
    if (dwWaited != DNS_OK) {
        // Once it is cancelled nobody will take the argument; before, another thread is just delivering it.
        if (ub_cancel(m_pContext, iQuestion) == UB_NOERROR)
            pArgument.reset(pHandedOver);
        return dwWaited;
    }
    const std::lock_guard lock(pAnswer->mutex);
    records = std::move(pAnswer->records);
    return pAnswer->dwStatus;
}

/// Fetches answers until the one that is waited for has arrived.
uint32_t CDnsContext::Wait(const SAnswer& answer, const CWaitLimit& limit)
{
    for (;;) {
        pollfd polled[] = {{answer.arrived.Get(), POLLIN, 0}, {ub_fd(m_pContext), POLLIN, 0}};
        switch (PollWithin(polled, limit)) {
        case EPollEnd::Stopped:
            return DNS_CANCELED;
        case EPollEnd::TimedOut:
            return DNS_TIMED_OUT;
        case EPollEnd::Failed:
            return DNS_SERVER_FAILED;
        case EPollEnd::Ready:
            break;
        }
        if (polled[0].revents != 0)
            return DNS_OK;
        if (ub_process(m_pContext) != UB_NOERROR)
            return DNS_SERVER_FAILED;
    }
}

} // namespace Platform
