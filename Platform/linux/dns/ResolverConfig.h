#pragma once

#include <string>
#include <vector>

namespace Platform {

/// What resolv.conf says about whom to ask and for what (resolv.conf(5)).
struct SResolverConfig
{
    std::vector<std::string> servers; ///< the local machine when the file names none, or cannot be read
    std::vector<std::string> suffixes;
    bool bComplete = true; ///< false: there is a file, which could not be read
};

/// The state of a resolv.conf at one time. A symbolic link stands for what it points to.
struct SResolverFile
{
    std::string strPath;
    unsigned long long nDevice = 0;
    unsigned long long nNumber = 0;
    long long iSize = -1;    ///< -1: there is no such file
    long long iModified = 0; ///< nanoseconds since 1970-01-01 UTC

    bool operator==(const SResolverFile&) const = default;
};

SResolverFile CurrentResolverFile();
SResolverConfig ReadResolverConfig(const SResolverFile& file);

} // namespace Platform
