#include "Inject/SSettings.h"

#include "Bex/CFileException.h"
#include "Bex/TextFunctions.h"
#include "Common/ConfigKeys.h"
#include "Common/IsValidAddress.h"
#include "Common/LocalHostIdentity.h"
#include "Inject/CRefusal.h"
#include "Platform/FileSystem.h"
#include "Platform/Host.h"
#include "Platform/Process.h"

namespace {

constexpr char CONFIG_FILE[] = "tobix.cfg";
constexpr char MAIL_NAME_FILE[] = "/etc/mailname"; // what addresses of this machine end with, for all programs
constexpr uint64_t LONGEST_MAIL_NAME = 4096;
constexpr unsigned LOOKUP_MILLIS = 5000;

/// Where the caller cannot choose it, when this program may do more than the caller.
std::string ConfigurationPath()
{
    bool bPresent = false;
    std::string strDirectory;
    if (!Platform::HasLentRights())
        strDirectory = Platform::NativePath(Platform::EnvironmentVariable(Bex::CONFIG_DIRECTORY_VARIABLE, bPresent));
    return Bex::JoinPath(bPresent ? strDirectory : TOBIX_CONFIG_DIRECTORY, CONFIG_FILE).Text();
}

bool IsHost(std::string_view name) { return IsValidAddress("x@" + std::string(name)); }

std::string MailName()
{
    Bex::CList<Bex::CSimpleString> lines(false);
    Bex::CTableReader reader(LONGEST_MAIL_NAME, lines);
    Bex::CSimpleString strLine;
    if (!reader.Open(MAIL_NAME_FILE) || !reader.ReadLine(strLine))
        return {};
    return std::string(Bex::TrimmedView(strLine));
}

std::string HostName(const Bex::CConfigFile& config)
{
    for (std::string strName : {std::string(config.GetString(Keys::FQDN).View()), MailName()}) {
        if (IsHost(strName))
            return strName;
    }
    std::string strName;
    if (Platform::HostName(strName) && strName.find('.') != std::string::npos && IsHost(strName))
        return strName;
    const Platform::CWaitLimit limit = Platform::CWaitLimit().For(LOOKUP_MILLIS);
    const std::string strCanonical = LocalHostIdentity::Obtain(limit).strHostName.Text();
    return IsHost(strCanonical) ? strCanonical : "localhost";
}

bool IsTrusted(const Platform::SCaller& caller, const SSettings& settings, const Bex::CConfigFile& config)
{
    unsigned nOwner = 0;
    if (caller.nUser == 0 || (Platform::OwnerOf(settings.strQueue.Text(), nOwner) && caller.nUser == nOwner))
        return true;
    Bex::CList<Bex::CSimpleString> names(false);
    Bex::Tokenize(config.GetString(Keys::INJECT_TRUSTED_USERS), ", \t", names, true);
    for (const Bex::CSimpleString& strName : names) {
        if (strName.View() == caller.strLogin)
            return true;
    }
    return false;
}

} // namespace

SSettings SSettings::Load()
{
    const std::string strPath = ConfigurationPath();
    Bex::CConfigFile config;
    try {
        if (!config.Load(strPath.c_str()))
            throw CRefusal(EExit::Temporary, "the configuration " + strPath + " cannot be read");
    } catch (const Bex::CFileException&) {
        throw CRefusal(EExit::Temporary, "the configuration " + strPath + " cannot be read");
    }
    SSettings settings;
    settings.strQueue = config.GetPath(Keys::QUEUE_DIR);
    settings.strHost = HostName(config);
    if (!Platform::FindCaller(settings.caller))
        throw CRefusal(EExit::NoUser, "user " + std::to_string(settings.caller.nUser) + " has no name");
    settings.bTrusted = IsTrusted(settings.caller, settings, config);
    return settings;
}
