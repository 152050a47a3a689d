#pragma once

#include "Bex/CSimpleString.h"

#include <cstdint>

namespace Bex {

/// A moment: seconds since 1970-01-01 UTC. A value; any thread.
class CTime
{
public:
    constexpr CTime() = default;
    constexpr explicit CTime(int64_t iSeconds) : m_iSeconds(iSeconds) {}
    static CTime Now();

    constexpr int64_t Seconds() const { return m_iSeconds; }
    /// Local time as in a Date header (RFC 5322 3.3): "Wed, 24 Dec 2014 18:03:05 +0100", English names.
    CSimpleString MailDate() const;
    constexpr auto operator<=>(const CTime&) const = default;

private:
    int64_t m_iSeconds = 0;
};

} // namespace Bex
