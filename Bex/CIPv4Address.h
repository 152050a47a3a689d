#pragma once

#include "Bex/IIPAddress.h"

#include <array>

namespace Bex {

/// An IPv4 address. A value, used by one thread at a time.
class CIPv4Address : public IIPAddress
{
public:
    CIPv4Address() = default;
    explicit CIPv4Address(const CSimpleString& strText) { CIPv4Address::Set(strText); }
    explicit CIPv4Address(const Platform::SSocketAddress& address) { CIPv4Address::Set(address); }

    int Family() const override { return Platform::FAMILY_IPV4; }
    const CSimpleString& Text() const override;
    const CSimpleString& ReverseName() const override;
    const CSimpleString& HostName() const override;
    using IIPAddress::Set;
    void Set(const Platform::SSocketAddress& address) override;
    void Set(const CSimpleString& strText) override;
    bool IsValid() const override { return m_bValid; }
    bool IsLoopback() const override;
    bool IsPrivate() const override;
    bool IsLinkLocal() const override;
    Platform::SSocketAddress Raw() const override;
    std::unique_ptr<IIPAddress> Clone() const override;

private:
    std::array<uint8_t, 4> m_address{}; ///< network order
    bool m_bValid = false;
    mutable CSimpleString m_strText;
    mutable CSimpleString m_strReverseName;
    mutable CSimpleString m_strHostName;
};

} // namespace Bex
