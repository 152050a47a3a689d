#pragma once

#include "Platform/SocketAddress.h"

#include <string>
#include <vector>

/// Names and addresses of hosts, as the system's resolver tells them. Any thread; false: LastSocketError.
namespace Platform {

/// The addresses of a name in one family, and its canonical name (empty when it has none) to those who ask for it.
bool LookupHost(int iFamily, const char* pszName, std::vector<SSocketAddress>& addresses,
                std::string* pCanonicalName = nullptr);
/// The name of an address; false when it has none.
bool LookupName(const SSocketAddress& address, std::string& strName);

} // namespace Platform
