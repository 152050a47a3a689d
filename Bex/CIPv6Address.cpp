#include "Bex/CIPv6Address.h"

#include "Bex/CSocketException.h"
#include "Platform/SocketAddress.h"

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CIPv6Address";

constexpr std::array<uint8_t, 16> LOOPBACK = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};

} // namespace

const CSimpleString& CIPv6Address::Text() const
{
    if (m_strText.IsEmpty())
        m_strText = CSimpleString(Platform::AddressText(Raw()));
    return m_strText;
}

const CSimpleString& CIPv6Address::ReverseName() const
{
    if (!m_strReverseName.IsEmpty())
        return m_strReverseName;
    constexpr char DIGITS[] = "0123456789abcdef";
    CSimpleString strName;
    for (auto it = m_address.rbegin(); it != m_address.rend(); ++it) {
        const char nibbles[] = {DIGITS[*it & 0x0F], '.', DIGITS[*it >> 4], '.'};
        strName.Append(std::string_view(nibbles, sizeof(nibbles)));
    }
    m_strReverseName = strName.SubString(0, strName.Length() - 1);
    return m_strReverseName;
}

const CSimpleString& CIPv6Address::HostName() const
{
    if (m_strHostName.IsEmpty())
        m_strHostName = LookUpHostName();
    return m_strHostName;
}

void CIPv6Address::Set(const Platform::SSocketAddress& address)
{
    if (address.iFamily != Platform::FAMILY_IPV6)
        ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_NO_SUCH_FAMILY);
    m_address = address.bytes;
    m_bValid = true;
    m_strText = {};
    m_strReverseName = {};
    m_strHostName = {};
}

void CIPv6Address::Set(const CSimpleString& strText)
{
    Platform::SSocketAddress address;
    if (!Platform::ParseAddress(Platform::FAMILY_IPV6, strText.Text(), address))
        ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_INVALID);
    Set(address);
}

bool CIPv6Address::IsLoopback() const { return m_address == LOOPBACK; }

bool CIPv6Address::IsPrivate() const { return false; }

bool CIPv6Address::IsLinkLocal() const { return false; }

Platform::SSocketAddress CIPv6Address::Raw() const
{
    Platform::SSocketAddress address;
    address.iFamily = Platform::FAMILY_IPV6;
    address.bytes = m_address;
    return address;
}

std::unique_ptr<IIPAddress> CIPv6Address::Clone() const { return std::make_unique<CIPv6Address>(*this); }

} // namespace Bex
