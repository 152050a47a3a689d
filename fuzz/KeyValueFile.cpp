// A key/value file, such as the settings that a mailbox owner writes: what was read must survive a save, and a second
// save must change nothing but drop the empty lines that the first one put at the end for lines without a pair.
#include "Bex/CConfigFile.h"
#include "Check.h"
#include "FuzzFile.h"

#include <map>
#include <string>

using namespace Bex;

namespace {

std::map<std::string, std::string> Pairs(const CConfigFile& config)
{
    std::map<std::string, std::string> pairs;
    for (CConfigFile::CIterator node(config); node; ++node)
        pairs.emplace(node->key.View(), node->value.View());
    return pairs;
}

std::string WithoutEmptyTail(std::string strText)
{
    while (strText.ends_with("\n\n") || strText == "\n")
        strText.pop_back();
    return strText;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    static const CFuzzFile file;
    file.Write(pData, nSize);
    CConfigFile config;
    Check(config.Load(file.Path()));
    const auto pairs = Pairs(config);
    for (const auto& [strKey, strValue] : pairs)
        config.GetInt(strKey.c_str(), 1);
    config.GetLocalPartDelimiter();
    Check(config.Save());
    const std::string strSaved = WithoutEmptyTail(file.Read());
    CConfigFile again;
    Check(again.Load(file.Path()) && Pairs(again) == pairs);
    Check(again.Save() && file.Read() == strSaved);
    return 0;
}
