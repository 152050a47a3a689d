#include "Bex/CLogContext.h"

#include <utility>

namespace Bex {

namespace {

thread_local const CLogContext* t_pInnermost = nullptr;

} // namespace

CLogContext::CLogContext(std::string_view name)
    : m_pOuter(std::exchange(t_pInnermost, this)), m_bSameMail(false), m_name(name)
{}

CLogContext::CLogContext(std::string_view name, std::string_view messageID, std::string_view sender,
                         std::string_view recipient)
    : m_pOuter(std::exchange(t_pInnermost, this)), m_bSameMail(true), m_name(name), m_messageID(messageID),
      m_sender(sender), m_recipient(recipient)
{}

CLogContext::~CLogContext() { t_pInnermost = m_pOuter; }

std::string_view CLogContext::FirstName()
{
    std::string_view name;
    for (const CLogContext* p = t_pInnermost; p != nullptr; p = p->Outer())
        name = p->Name().empty() ? name : p->Name();
    return name;
}

const CLogContext* CLogContext::Innermost() { return t_pInnermost; }

} // namespace Bex
