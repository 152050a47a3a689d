#include "Responder/DaemonConfiguration.h"

#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Platform/Process.h"

bool LoadDaemonConfiguration(Bex::CSimpleString& strPath)
{
    bool bPresent = false;
    const std::string strOfDaemon = Platform::EnvironmentVariable(CONFIGURATION_VARIABLE, bPresent);
    strPath =
        strOfDaemon.empty() ? Bex::JoinPath(ConfigDirectory(), CONFIGURATION_FILE) : Bex::CSimpleString(strOfDaemon);
    return Config().Load(strPath);
}
