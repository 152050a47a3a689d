// How CLocalAgent keeps what is left of a mail that could be delivered to some of its recipients only.

#include "Tobix/CLocalAgent.h"

#include "Bex/CFileException.h"
#include "Platform/Clock.h"
#include "Platform/Errors.h"
#include "Tobix/MailLog.h"

#include <utility>

namespace {

constexpr unsigned AFTER_SHORTAGE_MILLIS = 1000;
constexpr unsigned LAST_TRIES = 30; ///< after a stop, while the ends of the other threads free what is short
constexpr unsigned LAST_TRY_MILLIS = 100;

} // namespace

/// Some recipients have their copies, and something is short or a stop came: a queue file for the others is one more
/// copy of this mail, so that it counts as delivered and nobody gets a second one. While even that cannot be written
/// there is nothing to do but to wait; a stop ends that soon. Where the queue has no room for it, it takes the mail's
/// place in the error directory.
CLocalAgent::EOutcome CLocalAgent::KeepRest(const CMail& mail, const Bex::CSimpleString& strName)
{
    const CMail rest(mail, m_router.OpenRecipients());
    TryLater(QueuePath(strName), EWhy::Busy);
    const auto NextName = [this] { return m_names.RecipientCopy(Bex::CTime::Now(), Id()); };
    for (unsigned nTries = LAST_TRIES;;) {
        const SSaveResult saved = SaveRest(rest, m_directories.strQueue, NextName);
        if (saved)
            return EOutcome::Delivered;
        if (MailLog::NotSaved(rest, QueuePath(strName), saved.error, __LINE__) == ERouted::Failed)
            break;
        m_group.EndBeforeWaiting();
        if (m_group.LostCopies() || nTries == 0)
            return EOutcome::Failed;
        if (StopEvent().Wait(AFTER_SHORTAGE_MILLIS)) {
            --nTries;
            Platform::SleepMillis(LAST_TRY_MILLIS);
        }
    }
    const auto FirstOwnName = [=, bFirst = true]() mutable {
        return std::exchange(bFirst, false) ? strName : NextName();
    };
    if (!SaveRest(rest, m_directories.strError, FirstOwnName))
        return EOutcome::Failed;
    MailLog::PlacedInError(strName);
    return EOutcome::Delivered;
}

SSaveResult CLocalAgent::SaveRest(const CMail& rest, const Bex::CSimpleString& strDirectory,
                                  const std::function<Bex::CSimpleString()>& NextName)
{
    try {
        Bex::CSimpleString strPath;
        return m_group.SaveNew(rest, EWriteMode::Queue, strDirectory, ENaming::WhenDurable, NextName, strPath);
    } catch (...) {
        if (!Bex::IsHandledExceptionBusy())
            throw;
        return {ESaveResult::Failed, {Platform::LIB_NO_MEMORY, Platform::SYS_NO_MEMORY}};
    }
}
