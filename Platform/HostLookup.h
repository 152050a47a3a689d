#pragma once

#include "Platform/CWaitLimit.h"
#include "Platform/SocketAddress.h"

#include <string>
#include <vector>

/// Names and addresses of hosts, as the system's resolver tells them, which takes its own time: under a limit somebody
/// else waits for it, and an answer that comes too late is nobody's. Any thread; false: LastSocketError.
namespace Platform {

/// The addresses of a name in one family, and its canonical name (empty when it has none) to those who ask for it.
bool LookupHost(int iFamily, const char* pszName, std::vector<SSocketAddress>& addresses,
                std::string* pCanonicalName = nullptr, const CWaitLimit& limit = {});
/// The name of an address; false when it has none.
bool LookupName(const SSocketAddress& address, std::string& strName, const CWaitLimit& limit = {});

} // namespace Platform
