#pragma once

#include "Bex/CSimpleString.h"
#include "Platform/SocketAddress.h"

#include <memory>

namespace Bex {

/// An IP address of either family. Caches its texts when they are first asked for: used by one thread at a time.
class IIPAddress
{
public:
    virtual int Family() const = 0;                       ///< Platform::FAMILY_IPV4 or FAMILY_IPV6
    virtual const CSimpleString& Text() const = 0;        ///< dotted quad, or RFC 5952
    virtual const CSimpleString& ReverseName() const = 0; ///< for a reverse lookup, without zone suffix
    /// The name that the reverse lookup gives, which may take as long as the resolver lets it; "[<text>]" without one.
    virtual const CSimpleString& HostName() const = 0;
    virtual void Set(const Platform::SSocketAddress& address) = 0; ///< CSocketException 10047 for another family
    virtual void Set(const CSimpleString& strText) = 0; ///< a literal; CSocketException 10022 when it is none
    virtual bool IsValid() const = 0;                   ///< an address has been set
    virtual bool IsLoopback() const = 0;
    virtual bool IsPrivate() const = 0;
    virtual bool IsLinkLocal() const = 0;
    virtual ~IIPAddress() = default;

    virtual Platform::SSocketAddress Raw() const = 0; ///< with port 0
    virtual std::unique_ptr<IIPAddress> Clone() const = 0;
};

} // namespace Bex
