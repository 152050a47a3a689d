#include "Platform/linux/crash/CMemoryMap.h"

#include <cinttypes>
#include <cstdio>
#include <fstream>

namespace Platform {

namespace {

bool ParseHead(const std::string& strLine, SMapping& mapping)
{
    char mode[5] = "";
    int iName = 0;
    if (std::sscanf(strLine.c_str(), "%" SCNx64 "-%" SCNx64 " %4s %" SCNx64 " %*s %*s %n", &mapping.ui64Start,
                    &mapping.ui64End, mode, &mapping.ui64Offset, &iName) != 4)
        return false;
    mapping.bRead = mode[0] == 'r';
    mapping.bWrite = mode[1] == 'w';
    mapping.bExecute = mode[2] == 'x';
    mapping.bShared = mode[3] == 's';
    mapping.strName = strLine.substr(static_cast<size_t>(iName));
    return true;
}

uint64_t OwnBytes(const std::string& strLine)
{
    uint64_t ui64Kilobytes = 0;
    if (std::sscanf(strLine.c_str(), "Anonymous: %" SCNu64 " kB", &ui64Kilobytes) != 1)
        std::sscanf(strLine.c_str(), "Swap: %" SCNu64 " kB", &ui64Kilobytes);
    return ui64Kilobytes * 1024;
}

} // namespace

std::vector<SMapping> ReadMemoryMap(pid_t iProcess, bool bDetails)
{
    const std::string strDirectory = "/proc/" + std::to_string(iProcess);
    std::ifstream file(strDirectory + (bDetails ? "/smaps" : "/maps"));
    std::vector<SMapping> mappings;
    for (std::string strLine; std::getline(file, strLine);) {
        SMapping mapping;
        if (ParseHead(strLine, mapping))
            mappings.push_back(std::move(mapping));
        else if (!mappings.empty())
            mappings.back().ui64Own += OwnBytes(strLine);
    }
    return mappings;
}

} // namespace Platform
