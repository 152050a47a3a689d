#include "Tobix/CCopyGroup.h"

#include "Bex/CThread.h"
#include "Bex/TextFunctions.h"
#include "Platform/Clock.h"

#include <utility>

/// The directory joins before the write, so that a write error from then on reaches the flush.
template <class TSave>
SSaveResult CCopyGroup::Write(const Bex::CSimpleString& strDirectory, bool bPromised, TSave SaveCopy)
{
    m_flush.Add(strDirectory.Text());
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
                                const std::function<Bex::CSimpleString()>& NextName, Bex::CSimpleString& strPath)
{
    return Write(strDirectory, true, [&] {
        SSaveResult saved{ESaveResult::Exists};
        while (saved.result == ESaveResult::Exists) {
            strPath = Bex::PathBelow(strDirectory, NextName());
            saved = mail.SaveNew(strPath, mode, {.BeforeWaiting = [this] { EndBeforeWaiting(); }});
        }
        return saved;
    });
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
    const bool bFlushed = m_flush.Flush(&unpromised);
    m_bLostCopies |= !bFlushed && m_nCopiesOfMail > 0;
    return bFlushed;
}

void CCopyGroup::BeginMail()
{
    m_nCopiesOfMail = 0;
    m_bLostCopies = false;
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

void CCopyGroup::MarkRemoved(const Bex::CSimpleString& strDirectory)
{
    m_flush.MarkWritten(strDirectory.Text(), false);
}
