#pragma once

#include "Bex/CIPv4Address.h"
#include "Bex/CIPv6Address.h"

#include <memory>

namespace Bex {

/// An address of either family and a port. A value; copies clone the address. Used by one thread at a time.
class CSocketEndPoint
{
public:
    CSocketEndPoint() = default;                                       ///< no address, port 0
    explicit CSocketEndPoint(const Platform::SSocketAddress& address); ///< CSocketException 10047: unknown family
    CSocketEndPoint(const CIPv4Address& address, uint16_t wPort);
    CSocketEndPoint(const CIPv6Address& address, uint16_t wPort);
    CSocketEndPoint(const CSocketEndPoint& other);
    CSocketEndPoint(CSocketEndPoint&&) noexcept = default;
    CSocketEndPoint& operator=(CSocketEndPoint other) noexcept;

    const IIPAddress* Address() const { return m_pAddress.get(); } ///< null when there is none
    uint16_t Port() const { return m_wPort; }
    Platform::SSocketAddress Raw() const; ///< FAMILY_NONE without an address

private:
    std::unique_ptr<IIPAddress> m_pAddress;
    uint16_t m_wPort = 0;
};

} // namespace Bex
