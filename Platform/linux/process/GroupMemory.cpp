#include "Platform/linux/process/GroupMemory.h"

#include <algorithm>
#include <fstream>

namespace Platform {

namespace {

constexpr std::string_view UNIFIED = "0::/"; ///< begins the line of the one tree of version 2

/// UINT64_MAX for "max", and where there is none.
uint64_t ReadLimit(const std::string& strPath)
{
    uint64_t nLimit = 0;
    return std::ifstream(strPath) >> nLimit ? nLimit : UINT64_MAX;
}

} // namespace

uint64_t MostGroupMemory(uint64_t nSwap, const std::string& strMembership, const std::string& strGroups)
{
    std::ifstream lines(strMembership);
    std::string strGroup;
    for (std::string strLine; strGroup.empty() && std::getline(lines, strLine);) {
        if (strLine.starts_with(UNIFIED))
            strGroup = strLine.substr(UNIFIED.size() - 1);
    }
    uint64_t nMost = UINT64_MAX;
    while (!strGroup.empty()) {
        const std::string strPath = strGroups + strGroup;
        const uint64_t nLimit = ReadLimit(strPath + "/memory.max");
        const uint64_t nInSwap = std::min(nSwap, ReadLimit(strPath + "/memory.swap.max"));
        nMost = std::min(nMost, nLimit + std::min(nInSwap, UINT64_MAX - nLimit));
        strGroup.resize(strGroup == "/" ? 0 : std::max<size_t>(strGroup.rfind('/'), 1));
    }
    return nMost;
}

} // namespace Platform
