#pragma once

#include "Platform/DnsQuery.h"
#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/dns/ResolverConfig.h"

#include <memory>
#include <mutex>

struct ub_ctx;

namespace Platform {

/// The cache and the name servers of one state of resolv.conf. Any thread; whoever asks keeps it alive meanwhile.
///
/// A thread of the library's own does the asking. The threads that wait for answers take turns in fetching them, each
/// also those of others, until each has its own or its time is up.
class CDnsContext
{
public:
    explicit CDnsContext(const SResolverFile& file);
    ~CDnsContext();
    CDnsContext(const CDnsContext&) = delete;
    CDnsContext& operator=(const CDnsContext&) = delete;

    /// The one that answers for resolv.conf as it is now.
    static std::shared_ptr<CDnsContext> Current();

    const std::vector<std::string>& Suffixes() const { return m_config.suffixes; }
    uint32_t Query(const std::string& strName, EDnsType type, const CWaitLimit& limit,
                   std::vector<std::string>& records);

private:
    struct SAnswer;

    /// Else descriptors or memory were short while it was made: the next question makes another.
    bool IsWhole() const { return m_dwStatus == DNS_OK && m_config.bComplete; }
    bool Configure();
    uint32_t Wait(const SAnswer& answer, const CWaitLimit& limit);

    SResolverFile m_file;
    SResolverConfig m_config;
    ub_ctx* m_pContext; ///< null when it could not be made
    uint32_t m_dwStatus = DNS_OK;
    std::mutex m_beginning; ///< held while a question is handed over
    bool m_bBegun = false;  ///< with the first one the library's thread and its loop are made
};

} // namespace Platform
