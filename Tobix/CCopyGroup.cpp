#include "Tobix/CCopyGroup.h"

#include "Bex/TextFunctions.h"

#include <utility>

/// The directory joins before the write, so that a write error from then on reaches the flush.
template <class TSave>
SSaveResult CCopyGroup::Write(const Bex::CSimpleString& strDirectory, TSave SaveCopy)
{
    m_flush.Add(strDirectory.Text());
    const SSaveResult saved = SaveCopy();
    if (saved) {
        m_flush.MarkWritten(strDirectory.Text());
        ++m_nCopies;
    }
    return saved;
}

SSaveResult CCopyGroup::SaveNew(const CMail& mail, EWriteMode mode, const Bex::CSimpleString& strDirectory,
                                const std::function<Bex::CSimpleString()>& NextName, Bex::CSimpleString& strPath)
{
    return Write(strDirectory, [&] {
        SSaveResult saved{ESaveResult::Exists};
        while (saved.result == ESaveResult::Exists) {
            strPath = Bex::PathBelow(strDirectory, NextName());
            saved = mail.SaveNew(strPath, mode);
        }
        return saved;
    });
}

SSaveResult CCopyGroup::Save(const CMail& mail, EWriteMode mode, const Bex::CSimpleString& strDirectory,
                             const Bex::CSimpleString& strName)
{
    return Write(strDirectory, [&] { return mail.Save(Bex::PathBelow(strDirectory, strName), mode); });
}

void CCopyGroup::AddDelivered(const Bex::CSimpleString& strName, std::unique_ptr<CHeldMailFile> pFile)
{
    m_delivered.push_back({strName, std::move(pFile)});
}

bool CCopyGroup::Finish(std::vector<SDelivered>& delivered)
{
    delivered.clear();
    delivered.swap(m_delivered);
    m_nCopies = 0;
    return m_flush.Flush();
}
