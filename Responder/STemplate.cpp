#include "Responder/STemplate.h"

#include "Bex/TextFunctions.h"

#include <utility>

namespace {

std::string* FieldOf(STemplate& result, std::string_view name)
{
    static constexpr std::pair<std::string_view, std::string STemplate::*> FIELDS[] = {
        {"Subject", &STemplate::strSubject},
        {"From", &STemplate::strFrom},
        {"Reply-To", &STemplate::strReplyTo},
        {"Organization", &STemplate::strOrganization},
        {"Content-Type", &STemplate::strContentType}};
    for (const auto& [fieldName, pField] : FIELDS) {
        if (Bex::EqualNoCase(name, fieldName))
            return &(result.*pField);
    }
    return nullptr;
}

} // namespace

STemplate STemplate::Parse(std::string_view text)
{
    constexpr std::string_view BYTE_ORDER_MARK = "\xef\xbb\xbf";
    if (text.starts_with(BYTE_ORDER_MARK))
        text.remove_prefix(BYTE_ORDER_MARK.size());
    STemplate result;
    std::string_view rest = text;
    std::string* pField = nullptr;
    bool bHeader = false;
    for (std::string_view line = Bex::TakeLine(rest); !line.empty(); line = Bex::TakeLine(rest)) {
        if (bHeader && (line.front() == ' ' || line.front() == '\t')) { // a folded one goes on
            if (pField != nullptr)
                pField->append(" ").append(Bex::TrimmedView(line));
            continue;
        }
        const size_t nColon = line.find(':');
        pField = nColon == std::string_view::npos ? nullptr : FieldOf(result, Bex::TrimmedView(line.substr(0, nColon)));
        if (!bHeader && pField == nullptr) {
            rest = text;
            break;
        }
        bHeader = true;
        if (pField != nullptr)
            *pField = Bex::TrimmedView(line.substr(nColon + 1));
    }
    result.strBody = rest;
    return result;
}
