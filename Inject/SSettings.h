#pragma once

#include "Bex/CConfigFile.h"
#include "Platform/Caller.h"

#include <string>

/// Where mail goes and who hands it in: what the configuration and the system tell.
struct SSettings
{
    Bex::CSimpleString strQueue; ///< directory
    std::string strHost;         ///< what addresses of this machine end with
    Platform::SCaller caller;
    bool bTrusted = false; ///< the caller may name any sender

    std::string CallersAddress() const { return caller.strLogin + "@" + strHost; }
    /// CRefusal when there is no configuration, or the caller has no name.
    static SSettings Load();
};
