#include "Tobix/CCopyGroup.h"

void CCopyGroup::Written(const Bex::CSimpleString& strDirectory)
{
    m_flush.MarkWritten(strDirectory.Text());
    ++m_nCopies;
}

void CCopyGroup::AddDelivered(const Bex::CSimpleString& strName, const Platform::SFileIdentity& identity)
{
    m_delivered.push_back({strName, identity});
}

bool CCopyGroup::Finish(std::vector<SDelivered>& delivered)
{
    delivered.clear();
    delivered.swap(m_delivered);
    m_nCopies = 0;
    return m_flush.Flush();
}
