#include "Tobix/DMARCPolicy.h"

#include "Bex/CResolver.h"
#include "Bex/TextFunctions.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace {

constexpr std::string_view VERSION = "v=DMARC1";
constexpr std::string_view POLICY_TAG = "p=";
constexpr char NO_POLICY[] = "none";
constexpr size_t LONGEST_DOMAIN = 253; // RFC 1035 2.3.4
constexpr long MOST_PARENT_LABELS = 7;

std::optional<Bex::CSimpleString> PolicyOf(const Bex::CSimpleString& strText)
{
    if (!strText.View().starts_with(VERSION))
        return std::nullopt;
    Bex::CSimpleString strRecord(strText);
    strRecord.ReplaceAll("\\;", ";"); // as zone files are often written
    Bex::CList<Bex::CSimpleString> tags(false);
    Bex::Tokenize(strRecord, ";", tags, true);
    for (const Bex::CSimpleString& strTag : tags) {
        if (strTag.View().starts_with(POLICY_TAG))
            return strTag.SubString(static_cast<uint32_t>(POLICY_TAG.size()));
    }
    return std::nullopt;
}

} // namespace

std::vector<Bex::CSimpleString> DMARCNames(const Bex::CSimpleString& strDomain)
{
    std::vector<Bex::CSimpleString> names;
    if (strDomain.IsEmpty() || strDomain.Length() > LONGEST_DOMAIN)
        return names;
    std::string_view domain = strDomain;
    do {
        names.emplace_back("_dmarc.") += domain;
        do {
            domain.remove_prefix(std::min(domain.find('.'), domain.size() - 1) + 1);
        } while (std::count(domain.begin(), domain.end(), '.') >= MOST_PARENT_LABELS);
    } while (domain.find('.') != std::string_view::npos);
    return names;
}

Bex::CSimpleString FindDMARCPolicy(const Bex::CList<Bex::CSimpleString>& texts)
{
    for (const Bex::CSimpleString& strText : texts) {
        if (const auto strPolicy = PolicyOf(strText))
            return *strPolicy;
    }
    return NO_POLICY;
}

Bex::CSimpleString LookupDMARCPolicy(const Bex::CSimpleString& strDomain)
{
    Bex::CList<Bex::CSimpleString> texts(false);
    for (const Bex::CSimpleString& strName : DMARCNames(strDomain))
        Bex::CResolver::ResolveTXT(strName, texts); // a failure counts as a name without records
    return FindDMARCPolicy(texts);
}
