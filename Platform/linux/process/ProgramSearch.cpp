#include "Platform/linux/process/ProgramSearch.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Platform {

namespace {

std::string WorkingDirectory()
{
    std::array<char, PATH_MAX> path{};
    return getcwd(path.data(), path.size()) != nullptr ? path.data() : "";
}

std::string ExecutableDirectory()
{
    std::array<char, PATH_MAX> path{};
    const ssize_t nLength = readlink("/proc/self/exe", path.data(), path.size());
    if (nLength <= 0)
        return "";
    const std::string_view strPath(path.data(), static_cast<size_t>(nLength));
    return std::string(strPath.substr(0, strPath.rfind('/') + 1));
}

std::vector<std::string> SearchDirectories()
{
    std::vector<std::string> directories{ExecutableDirectory(), WorkingDirectory()};
    const char* const pszPath = std::getenv("PATH");
    std::string_view strRest = pszPath != nullptr ? pszPath : "/usr/bin:/bin";
    while (!strRest.empty()) {
        const std::string_view strDirectory = strRest.substr(0, strRest.find(':'));
        strRest.remove_prefix(std::min(strDirectory.size() + 1, strRest.size()));
        if (!strDirectory.empty())
            directories.emplace_back(strDirectory);
    }
    return directories;
}

bool IsProgram(const std::string& strPath)
{
    struct stat status
    {};
    if (stat(strPath.c_str(), &status) != 0) {
        errno = ENOENT; // a directory of PATH that we may not enter has nothing for us
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        errno = EACCES;
        return false;
    }
    return faccessat(AT_FDCWD, strPath.c_str(), X_OK, AT_EACCESS) == 0;
}

/// The child changes its directory before the program is started.
std::string MakeAbsolute(std::string strPath)
{
    return strPath.front() == '/' ? strPath : WorkingDirectory() + '/' + strPath;
}

} // namespace

std::string FindProgram(std::string_view strName)
{
    if (strName.find('/') != std::string_view::npos)
        return MakeAbsolute(std::string(strName));
    int iErrno = ENOENT;
    for (const std::string& strDirectory : SearchDirectories()) {
        if (strDirectory.empty())
            continue;
        std::string strPath = MakeAbsolute(strDirectory + '/' + std::string(strName));
        if (IsProgram(strPath))
            return strPath;
        if (errno == EACCES)
            iErrno = EACCES;
    }
    errno = iErrno;
    return "";
}

} // namespace Platform
