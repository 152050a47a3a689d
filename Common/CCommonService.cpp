#include "Common/CCommonService.h"

#include "Bex/TextFunctions.h"
#include "Common/Version.h"
#include "Platform/Host.h"

#include <cstdio>

Bex::CSimpleString CCommonService::ConfigurationDirectory() const
{
    bool bPresent = false;
    const std::string strDirectory = Platform::EnvironmentVariable("MAILCONFIGDIR", bPresent);
    return strDirectory.empty() ? ProgramDirectory() : Bex::CSimpleString(std::string_view(strDirectory));
}

Bex::CSimpleString CCommonService::ConfigurationFileName(const char* pszDefault) const
{
    for (int iIndex = 1; iIndex < ArgumentCount(); ++iIndex) {
        if (!Bex::EqualNoCase(Argument(iIndex), "-c"))
            continue;
        const char* const pszName = Argument(iIndex + 1);
        return pszName != nullptr ? pszName : pszDefault;
    }
    return pszDefault;
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
