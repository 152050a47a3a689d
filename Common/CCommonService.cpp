#include "Common/CCommonService.h"

#include "Bex/CConfigFile.h"
#include "Bex/TextFunctions.h"
#include "Common/Version.h"
#include "Platform/FileSystem.h"
#include "Platform/Process.h"

#include <algorithm>
#include <cstdio>

Bex::CSimpleString CCommonService::ConfigurationDirectory() const
{
    bool bPresent = false;
    const std::string strDirectory = Platform::EnvironmentVariable(Bex::CONFIG_DIRECTORY_VARIABLE, bPresent);
    return strDirectory.empty() ? ProgramDirectory() : Bex::CSimpleString(Platform::NativePath(strDirectory));
}

Bex::CSimpleString CCommonService::ConfigurationFileName(const std::vector<std::string>& arguments,
                                                         const char* pszDefault)
{
    const auto option = std::find_if(arguments.begin(), arguments.end(), [](const std::string& strArgument) {
        return Bex::EqualNoCase(strArgument, "-c");
    });
    const bool bNamed = arguments.end() - option > 1;
    return bNamed ? Bex::CSimpleString(option[1]) : Bex::CSimpleString(pszDefault);
}

Bex::CSimpleString CCommonService::VersionText()
{
    return Bex::CSimpleString::Formatted("%d.%02d.%04d.%d%s", Version::MAJOR, Version::MINOR, Version::BUILD,
                                         Version::REVISION, Version::SUFFIX);
}

void CCommonService::PrintUsage(const char* pszProgram) const
{
    const char* const pszShort = ShortName().Text();
    const char* const pszDisplay = DisplayName().Text();
    std::printf("%s %s\n------------------------------\n\n", pszDisplay, VersionText().Text());
    std::printf("Usage: %s -install|-uninstall|-debug [<shortname> <displayname> <params>] \n\n", pszProgram);
    std::printf("  -install [<shortname> <displayname> <params>]:\n"
                "      Installs the service with its default name and settings, if no further\n"
                "      parameters are given. If you want to install an additional copie of the\n"
                "      service, use the following parameters:\n"
                "      <shortname>:\n"
                "          short service name (e.g. \"%s2\")\n"
                "      <displayname>:\n"
                "          displayer service name (e.g. \"%s #2\")\n"
                "      <params>:\n"
                "          additional service starting parameters (e.g. \"-c tobix2.cfg\" for an\n"
                "          alternate configuration-file)\n\n",
                pszShort, pszDisplay);
    std::printf("  -uninstall [<shortname>]:\n"
                "      Uninstalls the service with its default name, if no further parameters\n"
                "      are given. If you want to uninstall an additional copie of the service,\n"
                "      use the following parameter:\n"
                "      <shortname>:\n"
                "          short service name (e.g. \"%s2\")\n\n",
                pszShort);
    std::printf("  -debug:\n"
                "      run as console application for debugging purposes\n\n");
}
