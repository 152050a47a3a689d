#pragma once

#include "Bex/CIPAddress.h"

namespace Bex {

/// An IPv4 address. A value, used by one thread at a time.
class CIPv4Address : public CIPAddress
{
public:
    CIPv4Address() : CIPAddress(Platform::FAMILY_IPV4) {}
    explicit CIPv4Address(const CSimpleString& strText) : CIPv4Address() { CIPAddress::Set(strText); }
    explicit CIPv4Address(const Platform::SSocketAddress& address) : CIPv4Address() { CIPAddress::Set(address); }

    bool IsLoopback() const override;
    bool IsPrivate() const override;
    bool IsLinkLocal() const override;
    std::unique_ptr<IIPAddress> Clone() const override { return std::make_unique<CIPv4Address>(*this); }

private:
    CSimpleString MakeReverseName() const override;
};

} // namespace Bex
