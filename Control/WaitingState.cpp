#include "Control/WaitingState.h"

#include "Control/Figures.h"

SWaitingState SWaitingState::Of(const SWaitingMail& mail, const CKnownMails& known)
{
    if (mail.name.mark != EMark::None)
        return {mail.name.mark == EMark::Held ? "held" : "failed", {}, {}};
    const CKnownMails::SKnown* const pKnown =
        mail.name.place == EPlace::Outgoing ? known.Find(mail.name.strName) : nullptr;
    if (pKnown != nullptr)
        return {pKnown->strState, pKnown->iAttempts, known.NextTry(*pKnown)};
    return {mail.IsUnfinished() ? "empty" : "waiting", {}, {}};
}

nlohmann::ordered_json JsonOf(const SWaitingMail& mail, const SWaitingState& state)
{
    nlohmann::ordered_json json{{"directory", PlaceName(mail.name.place)},
                                {"name", mail.name.strName},
                                {"state", state.strText},
                                {"age", mail.Age()},
                                {"created", InstantText(mail.iCreated)},
                                {"bytes", mail.iSize},
                                {"from", mail.strSender},
                                {"to", mail.recipients},
                                {"more_recipients", mail.bMoreRecipients}};
    if (mail.iCreated == 0) // it could not be looked at
        json["age"] = json["created"] = json["bytes"] = nullptr;
    if (state.attempts)
        json["attempts"] = *state.attempts;
    if (state.nextTry)
        json["next_try"] = InstantText(*state.nextTry);
    if (!mail.strError.empty())
        json["error"] = mail.strError;
    return json;
}
