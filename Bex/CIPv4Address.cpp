#include "Bex/CIPv4Address.h"

#include "Bex/CSocketException.h"
#include "Platform/SocketAddress.h"

#include <algorithm>

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CIPv4Address";

} // namespace

const CSimpleString& CIPv4Address::Text() const
{
    if (m_strText.IsEmpty())
        m_strText = CSimpleString(Platform::AddressText(Raw()));
    return m_strText;
}

const CSimpleString& CIPv4Address::ReverseName() const
{
    if (m_strReverseName.IsEmpty())
        m_strReverseName.Format("%d.%d.%d.%d", m_address[3], m_address[2], m_address[1], m_address[0]);
    return m_strReverseName;
}

const CSimpleString& CIPv4Address::HostName() const
{
    if (m_strHostName.IsEmpty())
        m_strHostName = LookUpHostName();
    return m_strHostName;
}

void CIPv4Address::Set(const Platform::SSocketAddress& address)
{
    if (address.iFamily != Platform::FAMILY_IPV4)
        ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_NO_SUCH_FAMILY);
    std::copy_n(address.bytes.begin(), m_address.size(), m_address.begin());
    m_bValid = true;
    m_strText = {};
    m_strReverseName = {};
    m_strHostName = {};
}

void CIPv4Address::Set(const CSimpleString& strText)
{
    Platform::SSocketAddress address;
    if (!Platform::ParseAddress(Platform::FAMILY_IPV4, strText.Text(), address))
        ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_INVALID);
    Set(address);
}

bool CIPv4Address::IsLoopback() const { return m_address[0] == 127; }

bool CIPv4Address::IsPrivate() const // RFC 1918 3
{
    return m_address[0] == 10 || (m_address[0] == 172 && (m_address[1] & 0xF0) == 16) ||
           (m_address[0] == 192 && m_address[1] == 168);
}

bool CIPv4Address::IsLinkLocal() const { return m_address[0] == 169 && m_address[1] == 254; }

Platform::SSocketAddress CIPv4Address::Raw() const
{
    Platform::SSocketAddress address;
    address.iFamily = Platform::FAMILY_IPV4;
    std::copy(m_address.begin(), m_address.end(), address.bytes.begin());
    return address;
}

std::unique_ptr<IIPAddress> CIPv4Address::Clone() const { return std::make_unique<CIPv4Address>(*this); }

} // namespace Bex
