#pragma once

#include <string_view>

namespace Bex {

/// Which mail the calling thread's log lines are about, for destinations that keep it beside the text. Holds while the
/// object lives on the thread's stack. The texts are not copied: they outlive the object.
class CLogContext
{
public:
    explicit CLogContext(
        std::string_view name); ///< the mail in that file, whatever the outer one is about; empty: none
    /// More of the outer one's mail: a further name, its envelope. What is empty is not told.
    CLogContext(std::string_view name, std::string_view messageID, std::string_view sender = {},
                std::string_view recipient = {});
    ~CLogContext();
    CLogContext(const CLogContext&) = delete;
    CLogContext& operator=(const CLogContext&) = delete;

    static std::string_view FirstName();   ///< of the mail that the calling thread's lines are about; empty: none
    static const CLogContext* Innermost(); ///< the calling thread's; null: its lines are about no mail
    const CLogContext* Outer() const { return m_bSameMail ? m_pOuter : nullptr; } ///< about the same mail
    std::string_view Name() const { return m_name; }
    std::string_view MessageID() const { return m_messageID; } ///< without angle brackets
    std::string_view Sender() const { return m_sender; }
    std::string_view Recipient() const { return m_recipient; }

private:
    const CLogContext* const m_pOuter;
    const bool m_bSameMail;
    const std::string_view m_name;
    const std::string_view m_messageID;
    const std::string_view m_sender;
    const std::string_view m_recipient;
};

} // namespace Bex
