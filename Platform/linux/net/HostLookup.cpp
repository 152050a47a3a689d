#include "Platform/HostLookup.h"

#include "Platform/CEventHandle.h"
#include "Platform/CNativeThread.h"
#include "Platform/linux/net/NativeAddress.h"
#include "Platform/linux/net/SocketFailure.h"
#include "Platform/linux/thread/PollWithin.h"

#include <functional>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <new>
#include <poll.h>

namespace Platform {

namespace {

struct SFreeAddresses
{
    void operator()(addrinfo* pAddresses) const { freeaddrinfo(pAddresses); }
};

constexpr size_t LONGEST_HOST_NAME = 1024;

struct SFound
{
    std::vector<SSocketAddress> addresses;
    std::string strName;
};

bool AskForHost(int iFamily, const char* pszName, bool bCanonicalName, SFound& found)
{
    addrinfo hints{};
    hints.ai_family = iFamily;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    hints.ai_flags = bCanonicalName ? AI_CANONNAME : 0;
    addrinfo* pFound = nullptr;
    const int iResult = getaddrinfo(pszName, nullptr, &hints, &pFound);
    const std::unique_ptr<addrinfo, SFreeAddresses> pOwned(pFound);
    if (iResult != 0)
        return FailLookup(iResult);
    found.strName = bCanonicalName && pFound->ai_canonname != nullptr ? pFound->ai_canonname : "";
    for (const addrinfo* pAddress = pFound; pAddress != nullptr; pAddress = pAddress->ai_next) {
        if (pAddress->ai_family == iFamily)
            found.addresses.push_back(FromNative(pAddress->ai_addr));
    }
    return true;
}

bool AskForName(const SNativeAddress& native, SFound& found)
{
    char szName[LONGEST_HOST_NAME] = {};
    const int iResult = getnameinfo(native.Get(), native.nLength, szName, sizeof(szName), nullptr, 0, NI_NAMEREQD);
    if (iResult != 0)
        return FailLookup(iResult);
    found.strName = szName;
    return true;
}

/// One question that a thread of its own asks, which shares it with whoever waits.
struct SQuestion
{
    std::function<bool(SFound&)> Ask;
    SFound found;
    uint32_t dwError = 0; ///< 0: found
    CEventHandle answered;
};

void AskOnThread(void* pArgument)
{
    const std::unique_ptr<std::shared_ptr<SQuestion>> pOwner(static_cast<std::shared_ptr<SQuestion>*>(pArgument));
    SQuestion& question = **pOwner;
    try {
        question.dwError = question.Ask(question.found) ? 0 : LastSocketError();
    } catch (const std::bad_alloc&) {
        question.dwError = SOCKET_TRY_AGAIN;
    }
    question.answered.Set();
}

/// The system's resolver cannot be interrupted. A thread that is left alone with it touches only what it shares.
bool AskWithin(const CWaitLimit& limit, std::function<bool(SFound&)> Ask, SFound& found)
{
    if (limit.Stop() == nullptr && limit.MillisLeft() == CWaitLimit::NO_LIMIT)
        return Ask(found);
    const auto pQuestion = std::make_shared<SQuestion>();
    pQuestion->Ask = std::move(Ask);
    auto pShared = std::make_unique<std::shared_ptr<SQuestion>>(pQuestion);
    if (!pQuestion->answered.IsValid() || !CNativeThread::Create(&AskOnThread, pShared.get()))
        return FailSocket(SOCKET_TRY_AGAIN);
    static_cast<void>(pShared.release()); // the thread's now
    pollfd polled{pQuestion->answered.WaitDescriptor(), POLLIN, 0};
    const EPollEnd end = PollWithin({&polled, 1}, limit);
    if (end != EPollEnd::Ready)
        return FailSocket(end == EPollEnd::Stopped ? SOCKET_CANCELED : SOCKET_TIMED_OUT);
    pQuestion->answered.Observe();
    found = std::move(pQuestion->found);
    return pQuestion->dwError == 0 || FailSocket(pQuestion->dwError);
}

} // namespace

bool LookupHost(int iFamily, const char* pszName, std::vector<SSocketAddress>& addresses, std::string* pCanonicalName,
                const CWaitLimit& limit)
{
    const int iNative = NativeFamily(iFamily);
    if (iNative == AF_UNSPEC)
        return FailSocket(SOCKET_NO_SUCH_FAMILY);
    SFound found;
    const auto Ask = [iNative, strName = std::string(pszName), bCanonicalName = pCanonicalName != nullptr](
                         SFound& answer) { return AskForHost(iNative, strName.c_str(), bCanonicalName, answer); };
    if (!AskWithin(limit, Ask, found))
        return false;
    addresses.insert(addresses.end(), found.addresses.begin(), found.addresses.end());
    if (pCanonicalName != nullptr)
        *pCanonicalName = found.strName;
    return true;
}

bool LookupName(const SSocketAddress& address, std::string& strName, const CWaitLimit& limit)
{
    SNativeAddress native;
    SFound found;
    if (!ToNative(address, native) ||
        !AskWithin(
            limit, [native](SFound& answer) { return AskForName(native, answer); }, found))
        return false;
    strName = found.strName;
    return true;
}

} // namespace Platform
