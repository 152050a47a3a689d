#pragma once

#include "Common/CMessage.h"
#include "Common/MailText.h"

#include <string>
#include <string_view>

/// A mail that this program composes: from the null sender, so that nothing ever answers it (RFC 3834 3.3), and marked
/// as an automatic answer. Used by one thread.
class CAnswer : public CMessage
{
public:
    /// Answers the message with that id (may be empty, then it is not referred to).
    CAnswer(const std::string& strEnvelopeTo, std::string_view answeredID, std::string_view answeredReferences);

    void AddField(std::string_view name, std::string_view value); ///< the value as it shall stand in the mail
    void AddText(std::string_view name, std::string_view value);  ///< any text, encoded as it needs it
    void AddLine(const std::string& strLine);
    void SetText(const std::string& strBody);
    void BuildHeaderLines(Bex::CList<Bex::CSimpleString>& lines, EWriteMode mode) const override;

    /// Puts the mail into place under a name that nobody has, complete and on stable storage; throws
    /// std::runtime_error.
    void Queue(const Bex::CSimpleString& strPath) const;
    /// The same under a fresh name in a directory.
    void QueueInto(const Bex::CSimpleString& strDirectory) const;

private:
    std::string m_strTo;
    Bex::CList<Bex::CSimpleString> m_lines;
};

std::string DirectoryOf(const Bex::CSimpleString& strPath);
/// A bare address that can be mailed to: not empty nor longer than any can be, without blanks, control characters and
/// separators.
bool IsUsableAddress(std::string_view address);
