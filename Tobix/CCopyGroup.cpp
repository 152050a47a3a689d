#include "Tobix/CCopyGroup.h"

#include "Bex/CFileException.h"
#include "Bex/CThread.h"
#include "Bex/TextFunctions.h"
#include "Platform/Clock.h"

#include <utility>

/// The directory joins before the write, so that a write error from then on reaches the flush. A mail of more
/// recipients than fit has several groups.
template <class TSave>
SSaveResult CCopyGroup::Write(const Bex::CSimpleString& strDirectory, bool bPromised, TSave SaveCopy)
{
    if (!HasRoomFor(1))
        m_End();
    if (m_lostCopies) // the mail has to be stored anew, whatever is stored now
        return {ESaveResult::Failed, *m_lostCopies};
    if (!m_flush.Add(strDirectory.Text()) && bPromised && Platform::IsBusy(Platform::LastError()))
        return {ESaveResult::Failed, Platform::LastError()};
    const SSaveResult saved = SaveCopy();
    if (saved) {
        m_nCopiesOfMail += bPromised ? 1 : 0;
        if (m_nCopies++ == 0)
            m_nBegunTicks = Platform::TickCount();
        m_flush.MarkWritten(strDirectory.Text(), bPromised);
    }
    return saved;
}

SSaveResult CCopyGroup::SaveNew(const CMail& mail, EWriteMode mode, const Bex::CSimpleString& strDirectory,
                                ENaming naming, std::function<Bex::CSimpleString()> NextName,
                                Bex::CSimpleString& strPath)
{
    SUnnamed copy{.pFile = nullptr, .strDirectory = strDirectory, .strName = {}, .NextName = std::move(NextName)};
    m_unnamed.reserve(m_unnamed.size() + 1); // from the writing on nothing may fail
    const SSaveOptions options{.bOrdered = naming == ENaming::Durable,
                               .BeforeWaiting = [this] { EndBeforeWaiting(); },
                               .pUnnamed = naming == ENaming::WhenDurable ? &copy.pFile : nullptr};
    const SSaveResult result = Write(strDirectory, true, [&] {
        SSaveResult saved{ESaveResult::Exists};
        while (saved.result == ESaveResult::Exists) {
            copy.strName = copy.NextName();
            strPath = Bex::PathBelow(strDirectory, copy.strName);
            saved = mail.SaveNew(strPath, mode, options);
        }
        return saved;
    });
    if (copy.pFile)
        m_unnamed.push_back(std::move(copy));
    return result;
}

SSaveResult CCopyGroup::SaveBy(const Bex::CSimpleString& strDirectory, const std::function<SSaveResult()>& SaveCopy)
{
    return Write(strDirectory, true, SaveCopy);
}

SSaveResult CCopyGroup::SaveExtra(const CMail& mail, EWriteMode mode, const Bex::CSimpleString& strDirectory,
                                  const Bex::CSimpleString& strName)
{
    return Write(strDirectory, false, [&] { return mail.Save(Bex::PathBelow(strDirectory, strName), mode); });
}

void CCopyGroup::AddDelivered(const Bex::CSimpleString& strName, std::unique_ptr<CHeldMailFile> pFile)
{
    m_delivered.push_back({strName, std::move(pFile)});
}

bool CCopyGroup::Finish(std::vector<SDelivered>& delivered, Platform::SError& unpromised)
{
    Bex::CThread::EndIfAbandoned();
    delivered.clear();
    delivered.swap(m_delivered);
    m_nCopies = 0;
    bool bFlushed = m_flush.Flush(&unpromised);
    if (const auto failed = std::exchange(m_failed, {}); bFlushed && failed) {
        Platform::SetLastError(*failed);
        bFlushed = false;
    }
    if (!m_unnamed.empty()) {
        bFlushed = bFlushed && NameCopies() && m_flush.Flush(&unpromised);
        DropUnnamed();
    }
    if (!bFlushed && m_nCopiesOfMail > 0)
        m_lostCopies = Platform::LastError();
    return bFlushed;
}

CCopyGroup::SPart CCopyGroup::HandOver()
{
    m_nCopiesAside = std::exchange(m_nCopies, 0);
    return {.flush = m_flush.TakePending(), .delivered = std::exchange(m_delivered, {})};
}

void CCopyGroup::SettleAside(bool bFlushed, Platform::SError error)
{
    m_nCopiesAside = 0;
    if (!bFlushed && m_nCopies > 0)
        m_failed = error;
}

/// Their names have to be on stable storage, too, before the queue files may go.
bool CCopyGroup::NameCopies()
{
    try {
        for (SUnnamed& copy : m_unnamed) {
            while (!copy.pFile->CommitNew()) {
                copy.strName = copy.NextName();
                copy.pFile->SetTarget(Bex::PathBelow(copy.strDirectory, copy.strName));
            }
            copy.pFile.reset();
            m_flush.MarkWritten(copy.strDirectory.Text());
        }
    } catch (const Bex::CFileException& exception) {
        Platform::SetLastError(exception.Error());
        return false;
    }
    return true;
}

void CCopyGroup::DropUnnamed()
{
    for (const SUnnamed& copy : m_unnamed) {
        if (copy.pFile)
            m_Withdraw(copy.strName);
    }
    m_unnamed.clear();
}

void CCopyGroup::BeginMail()
{
    m_nCopiesOfMail = 0;
    m_lostCopies.reset();
}

void CCopyGroup::EndBeforeWaiting()
{
    if (!IsEmpty())
        m_End();
}

void CCopyGroup::EndIfDue()
{
    if (!IsEmpty() && Platform::TickCount() - m_nBegunTicks >= MOST_MILLIS)
        m_End();
}

void CCopyGroup::MarkRemoved(const Bex::CSimpleString& strDirectory) { m_flush.FlushLater(strDirectory.Text()); }
