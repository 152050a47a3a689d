#pragma once

#include "Bex/CIPAddress.h"

namespace Bex {

/// An IPv6 address. A value, used by one thread at a time.
class CIPv6Address : public CIPAddress
{
public:
    CIPv6Address() : CIPAddress(Platform::FAMILY_IPV6) {}
    explicit CIPv6Address(const CSimpleString& strText) : CIPv6Address() { CIPAddress::Set(strText); }
    explicit CIPv6Address(const Platform::SSocketAddress& address) : CIPv6Address() { CIPAddress::Set(address); }

    bool IsLoopback() const override;
    bool IsPrivate() const override { return false; }
    bool IsLinkLocal() const override { return false; }
    std::unique_ptr<IIPAddress> Clone() const override { return std::make_unique<CIPv6Address>(*this); }

private:
    CSimpleString MakeReverseName() const override;
};

} // namespace Bex
