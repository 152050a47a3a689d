#include "Bex/CSocketEndPoint.h"

#include "Bex/CSocketException.h"

#include <utility>

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CSocketEndPoint";

} // namespace

CSocketEndPoint::CSocketEndPoint(const Platform::SSocketAddress& address) : m_wPort(address.wPort)
{
    if (address.iFamily == Platform::FAMILY_IPV4)
        m_pAddress = std::make_unique<CIPv4Address>(address);
    else if (address.iFamily == Platform::FAMILY_IPV6)
        m_pAddress = std::make_unique<CIPv6Address>(address);
    else
        ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_NO_SUCH_FAMILY);
}

CSocketEndPoint::CSocketEndPoint(const CIPv4Address& address, uint16_t wPort)
    : m_pAddress(address.Clone()), m_wPort(wPort)
{}

CSocketEndPoint::CSocketEndPoint(const CIPv6Address& address, uint16_t wPort)
    : m_pAddress(address.Clone()), m_wPort(wPort)
{}

CSocketEndPoint::CSocketEndPoint(const CSocketEndPoint& other)
    : m_pAddress(other.m_pAddress ? other.m_pAddress->Clone() : nullptr), m_wPort(other.m_wPort)
{}

CSocketEndPoint& CSocketEndPoint::operator=(CSocketEndPoint other) noexcept
{
    m_pAddress = std::move(other.m_pAddress);
    m_wPort = other.m_wPort;
    return *this;
}

Platform::SSocketAddress CSocketEndPoint::Raw() const
{
    if (!m_pAddress)
        return {};
    Platform::SSocketAddress address = m_pAddress->Raw();
    address.wPort = m_wPort;
    return address;
}

} // namespace Bex
