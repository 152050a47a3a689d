#include "Bex/CIPAddress.h"

#include "Bex/CSocketException.h"
#include "Platform/HostLookup.h"

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CIPAddress";

} // namespace

const CSimpleString& CIPAddress::Text() const
{
    if (m_strText.IsEmpty())
        m_strText = CSimpleString(Platform::AddressText(m_address));
    return m_strText;
}

const CSimpleString& CIPAddress::ReverseName() const
{
    if (m_strReverseName.IsEmpty())
        m_strReverseName = MakeReverseName();
    return m_strReverseName;
}

const CSimpleString& CIPAddress::HostName() const
{
    if (!m_strHostName.IsEmpty())
        return m_strHostName;
    std::string strName;
    if (Platform::LookupName(m_address, strName) && !(Text() == std::string_view(strName)))
        m_strHostName = CSimpleString(strName);
    else
        m_strHostName.Format("[%s]", Text().Text());
    return m_strHostName;
}

void CIPAddress::Set(const Platform::SSocketAddress& address)
{
    if (address.iFamily != Family())
        ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_NO_SUCH_FAMILY);
    m_address.bytes = address.bytes;
    m_bValid = true;
    m_strText = {};
    m_strReverseName = {};
    m_strHostName = {};
}

void CIPAddress::Set(const CSimpleString& strText)
{
    Platform::SSocketAddress address;
    if (!Platform::ParseAddress(Family(), strText.Text(), address))
        ThrowSocketException(SOURCE_FILE, __LINE__, Platform::SOCKET_INVALID);
    CIPAddress::Set(address);
}

} // namespace Bex
