#include "Control/QueueList.h"

#include "Control/CControlError.h"
#include "Control/CKnownMails.h"
#include "Control/CTerminal.h"
#include "Control/Figures.h"
#include "Control/LoadConfiguration.h"
#include "Control/SWaitingMail.h"
#include "Control/WaitingState.h"
#include "Tobix/ControlAnswers.h"

#include <utility>

namespace {

constexpr size_t MOST_RECIPIENTS = 100'000; ///< in memory at once
constexpr size_t LONGEST_ADDRESS_SHOWN = 60;
constexpr size_t LONGEST_ERROR_SHOWN = 160;
constexpr char UNKNOWN[] = "?";

SMailFilter FilterOf(const SQueueQuestion& question)
{
    SMailFilter filter{.strFrom = question.strFrom, .strTo = question.strTo};
    if (question.strOlder.empty())
        return filter;
    const std::optional<int64_t> seconds = SecondsIn(question.strOlder);
    if (!seconds)
        throw CControlError(EExit::Misused, question.strOlder + ": a span of time is a number with s, m, h, d or w");
    filter.iOlderThan = *seconds;
    return filter;
}

/// What is cut within a character becomes "?" on the terminal.
std::string Shortened(std::string strText, size_t nMost)
{
    if (strText.size() > nMost)
        strText.replace(nMost, std::string::npos, "...");
    return strText;
}

std::string RecipientsText(const SWaitingMail& mail)
{
    if (mail.recipients.empty())
        return UNKNOWN;
    std::string strText = Shortened(mail.recipients.front(), LONGEST_ADDRESS_SHOWN);
    if (const size_t nOthers = mail.recipients.size() - 1; nOthers > 0 || mail.bMoreRecipients)
        strText += " and " + std::to_string(nOthers) + (mail.bMoreRecipients ? " more at least" : " more");
    return strText;
}

EStyle StyleOf(const SWaitingMail& mail, const SWaitingState& state)
{
    if (mail.name.mark == EMark::Failed || state.strText == "bounce failed")
        return EStyle::Bad;
    return mail.name.mark == EMark::Held ? EStyle::Warning : EStyle::Plain;
}

/// Writes what it is given, some mails at a time, of which it asks the daemon: as tables, or as the elements of one
/// array.
class CQueueOutput
{
public:
    explicit CQueueOutput(const SOptions& options) : m_terminal(options)
    {
        if (m_terminal.IsJson())
            m_terminal.Raw("[");
    }

    void Add(SWaitingMail mail)
    {
        ++m_nMails;
        m_nRecipients += mail.recipients.size();
        m_mails.push_back(std::move(mail));
        if (m_mails.size() == MOST_NAMES_ASKED || m_nRecipients > MOST_RECIPIENTS)
            Write();
    }

    void Finish()
    {
        Write();
        if (m_terminal.IsJson())
            m_terminal.Raw("]\n");
        else if (m_nMails == 0)
            m_terminal.Line("no such mail waits");
    }

    size_t Count() const { return m_nMails; }

private:
    void Write()
    {
        m_known.Ask(m_mails);
        for (const SWaitingMail& mail : m_mails) {
            const SWaitingState state = SWaitingState::Of(mail, m_known);
            if (m_terminal.IsJson()) {
                m_terminal.Raw(std::exchange(m_bWritten, true) ? ",\n" : "\n");
                m_terminal.Json(JsonOf(mail, state));
            } else {
                AddRow(mail, state);
            }
        }
        if (!m_table.rows.empty())
            m_terminal.Table(m_table);
        m_table.rows.clear();
        m_mails.clear();
        m_nRecipients = 0;
    }

    void AddRow(const SWaitingMail& mail, const SWaitingState& state)
    {
        m_table.rows.push_back({{mail.name.Shown(), EStyle::Strong},
                                mail.iCreated == 0 ? UNKNOWN : AgeText(mail.Age()),
                                mail.iCreated == 0 ? UNKNOWN : SizeText(static_cast<uint64_t>(mail.iSize)),
                                {state.strText, StyleOf(mail, state)},
                                state.attempts ? std::to_string(*state.attempts) : "-",
                                state.nextTry ? MomentText(*state.nextTry) : "-",
                                mail.strSender.empty() ? "<>" : Shortened(mail.strSender, LONGEST_ADDRESS_SHOWN),
                                RecipientsText(mail),
                                Shortened(mail.strError, LONGEST_ERROR_SHOWN)});
    }

    CTerminal m_terminal;
    CKnownMails m_known;
    std::vector<SWaitingMail> m_mails; ///< to be written
    size_t m_nRecipients = 0;          ///< of them
    size_t m_nMails = 0;
    bool m_bWritten = false;
    STable m_table{{{"MAIL"},
                    {"AGE", true},
                    {"SIZE", true},
                    {"STATE"},
                    {"TRIES", true},
                    {"NEXT TRY"},
                    {"FROM"},
                    {"TO"},
                    {"LAST ERROR"}},
                   {}};
};

} // namespace

int ListQueue(const SOptions& options, const SQueueQuestion& question)
{
    const SMailFilter filter = FilterOf(question);
    LoadConfiguration(options);
    CQueueOutput output(options);
    bool bMore = false;
    for (const EPlace place : PLACES) {
        ForEachWaiting(place, filter, [&](SWaitingMail mail) {
            bMore = question.nLimit != 0 && output.Count() == question.nLimit;
            if (!bMore)
                output.Add(std::move(mail));
            return !bMore;
        });
        if (bMore)
            break;
    }
    output.Finish();
    if (bMore)
        CTerminal::Complain("there are more; --limit 0 shows all");
    return static_cast<int>(EExit::Done);
}
