#pragma once

#include "Bex/CSimpleString.h"
#include "Bex/ILogDestination.h"

#include <cstdint>
#include <string_view>

namespace Bex {

/// Log lines as syslog datagrams over UDP (RFC 3164 priority values): "<%d> [%04X] %s: %s", at most 512 bytes.
/// A line that cannot be sent is lost silently. Any thread.
class CSysLog : public ILogDestination
{
public:
    static bool IsFacility(std::string_view name); ///< whatever its case
    /// An unknown facility name means "mail"; an empty host "127.0.0.1".
    CSysLog(const CSimpleString& strFacility, const CSimpleString& strHost, uint16_t wPort);
    explicit CSysLog(int iFacilityTimes8); ///< to "127.0.0.1", port 514
    void Write(int iLevel, const char* pszText, unsigned dwReserved) override;
    void Flush() override {}

    static constexpr int FACILITY_DAEMON = 3 * 8;
    static constexpr int FACILITY_LOCAL2 = 18 * 8;
    const CSimpleString& Host() const { return m_strHost; }
    uint16_t Port() const { return m_wPort; }
    int Facility() const { return m_iFacility; } ///< multiplied by 8

private:
    CSimpleString m_strIdent = "Tobix";
    int m_iFacility;
    CSimpleString m_strHost;
    uint16_t m_wPort;
};

} // namespace Bex
