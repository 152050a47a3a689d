#pragma once

#include "Bex/IIPAddress.h"

namespace Bex {

/// What addresses of both families do alike: bytes, cached texts, lookups. Used by one thread at a time.
class CIPAddress : public IIPAddress
{
public:
    int Family() const override { return m_address.iFamily; }
    const CSimpleString& Text() const override;
    const CSimpleString& ReverseName() const override;
    const CSimpleString& HostName() const override;
    void Set(const Platform::SSocketAddress& address) override;
    void Set(const CSimpleString& strText) override;
    bool IsValid() const override { return m_bValid; }
    Platform::SSocketAddress Raw() const override { return m_address; }

protected:
    explicit CIPAddress(int iFamily) { m_address.iFamily = iFamily; }
    const std::array<uint8_t, 16>& Bytes() const { return m_address.bytes; } ///< IPv4: the first four
    virtual CSimpleString MakeReverseName() const = 0;

private:
    Platform::SSocketAddress m_address; ///< family and bytes only
    bool m_bValid = false;
    mutable CSimpleString m_strText;
    mutable CSimpleString m_strReverseName;
    mutable CSimpleString m_strHostName;
};

} // namespace Bex
