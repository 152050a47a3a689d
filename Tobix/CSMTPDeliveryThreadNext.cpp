// How CSMTPDeliveryThread comes by its next mail, in the order of their turns or along the way of the one before.

#include "Bex/CActivity.h"
#include "Bex/CLogContext.h"
#include "Bex/TextFunctions.h"
#include "Platform/FileSystem.h"
#include "SMTPc/FindTargets.h"
#include "Tobix/CSMTPDeliveryThread.h"
#include "Tobix/ServicePause.h"

#include <utility>

namespace {

constexpr int64_t LARGEST_AHEAD = 1 << 20; // bytes
constexpr unsigned MOST_LOOKS = 16;        // for a mail to follow another

} // namespace

bool CSMTPDeliveryThread::TakeFile()
{
    m_strFileName = std::exchange(m_strNext, {});
    m_pReady = std::move(m_pNext);
    m_nInRow = m_strFileName.IsEmpty() ? 1 : m_nInRow + 1;
    if (m_strFileName.IsEmpty() && !m_pFiles->Take(m_strFileName))
        return false;
    m_strMailPath = Bex::PathBelow(m_strOutgoingDirectory, m_strFileName);
    return true;
}

/// A file that a scan has found is looked at before anybody knows whether enough threads are at its domain, and what
/// goes its way. What cannot be read has no limit: the delivery tells why.
bool CSMTPDeliveryThread::IsDomainsTurn(const Bex::CSimpleString& strName)
{
    if (!m_pFiles->WantsDomain(strName))
        return true;
    const Bex::CActivity::CStep step("looks at %s", strName.Text());
    Bex::CSimpleString strDomain;
    Bex::CSimpleString strRoute;
    FailureOf([&] {
        CMail mail;
        if (!mail.Load(Bex::PathBelow(m_strOutgoingDirectory, strName), true))
            return;
        const Bex::CSimpleString strRecipient = RecipientOf(mail);
        strDomain = strRecipient.AfterFirst('@').Lowered();
        if (m_pFiles->KnowsRoutes())
            strRoute = RouteOf(mail.EnvelopeSender(), strRecipient);
    });
    return m_pFiles->EnterDomain(strName, strDomain, strRoute);
}

/// Whatever becomes of their connections, no more follow each other than the settings let: others wait, too. What goes
/// another way is left to threads that are free.
bool CSMTPDeliveryThread::TakesNext()
{
    for (unsigned n = 0; n < MOST_LOOKS && m_strNext.IsEmpty() && m_nInRow < m_settings.nMailsPerConnection &&
                         ShallRun() && !ServiceIsPaused() && m_pFiles->TakeAlong(m_strFileName, m_strRoute, m_strNext);
         ++n) {
        if (!IsDomainsTurn(m_strNext)) { // in this thread's hands until then, whatever that raises
            m_strNext = {};
        } else if (m_pFiles->RouteOf(m_strNext) != m_strRoute) {
            LetGoOfNext();
            break;
        }
    }
    return !m_strNext.IsEmpty();
}

/// A connection that a refused mail has left behind is the next mail's, or nobody's.
void CSMTPDeliveryThread::GoOnOrEnd()
{
    if (HasConnection() && !TakesNext())
        EndConnection();
}

void CSMTPDeliveryThread::LetGoOfNext()
{
    m_pNext.reset();
    m_pFiles->GiveBack(std::exchange(m_strNext, {}), m_strFileName);
}

/// Nothing is told of it here, and its file is read again when it does not get ready. A large one would be in memory
/// beside the one before.
SPreparedMail* CSMTPDeliveryThread::ReadyNext()
{
    if (!TakesNext() || m_pFiles->IsToReturn(m_strNext))
        return nullptr;
    const Bex::CLogContext context(m_strNext);
    const Bex::CSimpleString strPath = Bex::PathBelow(m_strOutgoingDirectory, m_strNext);
    if (Platform::FileSize(strPath.Text()) > LARGEST_AHEAD)
        return nullptr;
    auto pNext = std::make_unique<SLoadedMail>();
    if (!LoadMail(strPath, *pNext) || RecipientOf(pNext->mail).IsEmpty())
        return nullptr;
    SPreparedMail& prepared = pNext->prepared.emplace();
    PrepareMessage(*pNext, prepared);
    CheckAddresses(prepared.strSender, prepared.strRecipient);
    if (RouteOf(pNext->mail.EnvelopeSender(), prepared.strRecipient) != m_strRoute)
        return nullptr;
    m_pNext = std::move(pNext);
    return &prepared;
}
