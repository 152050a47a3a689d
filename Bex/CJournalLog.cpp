#include "Bex/CJournalLog.h"

#include "Bex/CLogContext.h"
#include "Platform/CNativeThread.h"

#include <algorithm>
#include <list>
#include <string>
#include <utility>
#include <vector>

namespace Bex {

namespace {

constexpr int LEVEL_WARNING = 4;
constexpr size_t LONGEST_VALUE = 1000; // bytes, of what others wrote

/// What each context around the line tells of a mail: a mail is known by several names, and has been given others.
class CFields
{
public:
    explicit CFields(std::initializer_list<Platform::CJournal::SField> first) : m_fields(first) {}

    void AddContexts()
    {
        for (const CLogContext* p = CLogContext::Innermost(); p != nullptr; p = p->Outer()) {
            Add("TOBIX_MAIL", p->Name());
            if (!p->MessageID().empty())
                Add("TOBIX_MAIL", m_bracketed.emplace_back(Bracketed(p->MessageID())));
            Add("TOBIX_FROM", p->Sender());
            Add("TOBIX_TO", p->Recipient());
        }
    }
    std::span<const Platform::CJournal::SField> Get() const { return m_fields; }

private:
    static std::string Bracketed(std::string_view text)
    {
        return std::string("<").append(text.substr(0, LONGEST_VALUE)).append(">");
    }
    void Add(std::string_view name, std::string_view value)
    {
        const Platform::CJournal::SField field{name, value.substr(0, LONGEST_VALUE)};
        const auto IsSame = [&field](const auto& other) {
            return other.name == field.name && other.value == field.value;
        };
        if (!value.empty() && std::ranges::none_of(m_fields, IsSame))
            m_fields.push_back(field);
    }

    std::vector<Platform::CJournal::SField> m_fields;
    std::list<std::string> m_bracketed; ///< which the fields point to
};

} // namespace

CJournalLog::CJournalLog(std::shared_ptr<ILogDestination> pOther, std::shared_ptr<Platform::CJournal> pJournal,
                         int iFacilityTimes8)
    : m_pOther(std::move(pOther)), m_pJournal(std::move(pJournal)), m_iFacilityTimes8(iFacilityTimes8)
{}

void CJournalLog::Write(int iLevel, const char* pszText, unsigned dwReserved)
{
    m_pOther->Write(iLevel, pszText, dwReserved);
    std::string_view text = pszText;
    if (text.ends_with('\n'))
        text.remove_suffix(1);
    Copy(iLevel, text);
}

void CJournalLog::Copy(int iLevel, std::string_view text)
{
    if (!Send(iLevel, text)) {
        ++m_nLost;
        return;
    }
    if (const unsigned nLost = m_nLost.exchange(0); nLost > 0) {
        if (!Send(LEVEL_WARNING, std::to_string(nLost) + " lines did not reach the journal"))
            m_nLost += nLost;
    }
}

bool CJournalLog::Send(int iLevel, std::string_view text) const
{
    const std::string strLevel = std::to_string(iLevel);
    const std::string strFacility = std::to_string(m_iFacilityTimes8 / 8);
    const std::string strThread = std::to_string(Platform::CurrentThreadId());
    CFields fields{{"MESSAGE", text},
                   {"PRIORITY", strLevel},
                   {"SYSLOG_FACILITY", strFacility},
                   {"SYSLOG_IDENTIFIER", "tobix"},
                   {"TID", strThread}};
    fields.AddContexts();
    return m_pJournal->Send(fields.Get());
}

} // namespace Bex
