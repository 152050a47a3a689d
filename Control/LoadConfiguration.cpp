#include "Control/LoadConfiguration.h"

#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Control/CControlError.h"
#include "Platform/FileSystem.h"
#include "Platform/Process.h"

namespace {

constexpr char DEFAULT_DIRECTORY[] = "/etc/tobix";

std::string DirectoryFor(const std::string& strFile)
{
    bool bPresent = false;
    const std::string strDirectory = Platform::EnvironmentVariable(Bex::CONFIG_DIRECTORY_VARIABLE, bPresent);
    if (!strDirectory.empty())
        return Platform::AbsolutePath(strDirectory);
    const size_t nSlash = strFile.rfind('/');
    if (nSlash == std::string::npos)
        return DEFAULT_DIRECTORY;
    return Platform::AbsolutePath(strFile.substr(0, nSlash == 0 ? 1 : nSlash));
}

} // namespace

Bex::CSimpleString FindConfiguration(const SOptions& options)
{
    const std::string& strFile = options.strConfiguration;
    const std::string strDirectory = DirectoryFor(strFile);
    const bool bPath = strFile.find('/') != std::string::npos;
    Bex::CSimpleString strPath = bPath ? Bex::CSimpleString(Platform::AbsolutePath(strFile))
                                       : Bex::JoinPath(strDirectory, strFile.empty() ? CONFIGURATION_FILE : strFile);
    Platform::SetEnvironmentVariable(Bex::CONFIG_DIRECTORY_VARIABLE, strDirectory.c_str());
    if (!Platform::SetWorkingDirectory(strDirectory.c_str()))
        throw CControlError(EExit::Wrong, "cannot enter the configuration's directory " + strDirectory + ": " +
                                              ErrorText(Platform::LastError()));
    return strPath;
}

void LoadConfiguration(const SOptions& options)
{
    const Bex::CSimpleString strPath = FindConfiguration(options);
    const Platform::SError error = LoadError(Config(), strPath);
    if (error.dwSysError != 0)
        throw CControlError(EExit::Wrong,
                            std::string("cannot read the configuration ") + strPath.Text() + ": " + ErrorText(error));
}
