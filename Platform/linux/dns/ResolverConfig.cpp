#include "Platform/linux/dns/ResolverConfig.h"

#include "Platform/Process.h"

#include <fstream>
#include <sstream>
#include <sys/stat.h>

namespace Platform {

namespace {

constexpr char USUAL_PATH[] = "/etc/resolv.conf";
constexpr char USUAL_SERVER[] = "127.0.0.1";
constexpr long long NANOS_PER_SECOND = 1'000'000'000;
// The C library stops at 3 and 6; a few more do no harm.
constexpr size_t MOST_SERVERS = 8;
constexpr size_t MOST_SUFFIXES = 8;
constexpr size_t MOST_BYTES = 1u << 16;

void ReadLine(const std::string& strLine, SResolverConfig& config)
{
    std::istringstream words(strLine);
    std::string strKeyword;
    std::string strWord;
    words >> strKeyword;
    if (strKeyword == "nameserver") {
        if (words >> strWord && config.servers.size() < MOST_SERVERS)
            config.servers.push_back(strWord);
    } else if (strKeyword == "search" || strKeyword == "domain") {
        config.suffixes.clear(); // the last line counts
        while (words >> strWord && config.suffixes.size() < MOST_SUFFIXES) {
            if (strWord != ".")
                config.suffixes.push_back(strWord);
        }
    }
}

} // namespace

SResolverFile CurrentResolverFile()
{
    bool bPresent = false;
    SResolverFile file;
    file.strPath = EnvironmentVariable("TOBIX_RESOLV_CONF", bPresent);
    if (!bPresent)
        file.strPath = USUAL_PATH;
    struct stat status;
    if (stat(file.strPath.c_str(), &status) == 0) {
        file.nDevice = status.st_dev;
        file.nNumber = status.st_ino;
        file.iSize = status.st_size;
        file.iModified = status.st_mtim.tv_sec * NANOS_PER_SECOND + status.st_mtim.tv_nsec;
    }
    return file;
}

SResolverConfig ReadResolverConfig(const SResolverFile& file)
{
    SResolverConfig config;
    std::string strText(MOST_BYTES, '\0');
    std::ifstream stream(file.strPath, std::ios::binary);
    config.bComplete = stream.is_open() || file.iSize < 0;
    stream.read(strText.data(), static_cast<std::streamsize>(strText.size()));
    strText.resize(static_cast<size_t>(stream.gcount()));
    std::istringstream lines(strText);
    for (std::string strLine; std::getline(lines, strLine);)
        ReadLine(strLine, config);
    if (config.servers.empty())
        config.servers.emplace_back(USUAL_SERVER);
    return config;
}

} // namespace Platform
