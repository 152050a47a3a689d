#pragma once

#include "Bex/CService.h"

/// What every service of the suite does alike: where its configuration is, and how it presents itself.
class CCommonService : public Bex::CService
{
public:
    using Bex::CService::CService;
    ~CCommonService() override = default;

    /// The environment variable MAILCONFIGDIR, else the program's directory; empty when there is neither.
    Bex::CSimpleString ConfigurationDirectory() const;
    /// The argument after the first "-c", whatever its case; the default when there is none.
    static Bex::CSimpleString ConfigurationFileName(const std::vector<std::string>& arguments, const char* pszDefault);

    static Bex::CSimpleString VersionText(); ///< of this build: "%d.%02d.%04d.%d%s"

protected:
    void PrintUsage(const char* pszProgram) const; ///< to standard output
};
