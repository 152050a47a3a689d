#pragma once

#include "Common/CMessage.h"

/// A mail file in memory: a message with its envelope (RFC 5321 2.3.1), the sender and the recipients.
///
/// Used by one thread at a time.
class CMail : public CMessage
{
public:
    CMail();
    CMail(const CMail& other) = default;
    /// A copy for one recipient of the mail, made without copying the others; To is set when it was empty.
    CMail(const CMail& other, const Bex::CSimpleString& strRecipient);

    int SetHeader(Bex::CSimpleString strName, Bex::CSimpleString strValue) override;
    void BuildHeaderLines(Bex::CList<Bex::CSimpleString>& lines, EWriteMode mode) const override;

    const Bex::CSimpleString& EnvelopeSender() const { return m_strEnvelopeSender; } ///< empty: the null sender
    /// Sets Return-Path, too, and the From address when it is empty.
    void SetEnvelopeSender(const Bex::CSimpleString& strAddress);
    /// Sets the envelope sender and the From address only while they are empty.
    void SetReturnPath(const Bex::CSimpleString& strAddress);
    const Bex::CList<Bex::CSimpleString>& Recipients() const { return m_recipients; }
    Bex::CSimpleString FirstRecipient() const; ///< empty when there is none
    /// Replaces the recipients by the pieces of the text between ",", ";", "<" and ">".
    void SetRecipients(std::string_view text);
    Bex::CList<Bex::CSimpleString>& Received() { return m_received; } ///< newest first
    const Bex::CList<Bex::CSimpleString>& Received() const { return m_received; }

    const Bex::CSimpleString& To() const { return m_strTo; }
    const Bex::CSimpleString& Cc() const { return m_strCc; }
    const Bex::CSimpleString& Bcc() const { return m_strBcc; }
    const Bex::CSimpleString& ReturnPath() const { return m_strReturnPath; }
    const Bex::CSimpleString& ReplyTo() const { return m_strReplyTo; }
    void SetReplyTo(const Bex::CSimpleString& strValue) { m_strReplyTo = strValue; }
    const Bex::CSimpleString& ReturnReceiptTo() const { return m_strReturnReceiptTo; }
    const Bex::CSimpleString& DispositionNotificationTo() const { return m_strDispositionNotificationTo; }
    const Bex::CSimpleString& InReplyTo() const { return m_strInReplyTo; }
    const Bex::CSimpleString& Precedence() const { return m_strPrecedence; }
    const Bex::CSimpleString& AuthenticatedAs() const { return m_strAuthenticatedAs; }
    const Bex::CSimpleString& ResentFor() const { return m_strResentFor; }
    void SetResentFor(const Bex::CSimpleString& strValue) { m_strResentFor = strValue; }

private:
    bool SetEnvelopeHeader(const Bex::CSimpleString& strName, const Bex::CSimpleString& strValue);
    void CopyAddressing(const CMail& other); ///< all but the recipients

    Bex::CList<Bex::CSimpleString> m_received;
    Bex::CSimpleString m_strEnvelopeSender;
    Bex::CList<Bex::CSimpleString> m_recipients;
    Bex::CSimpleString m_strTo;
    Bex::CSimpleString m_strCc;
    Bex::CSimpleString m_strBcc;
    Bex::CSimpleString m_strReturnPath;
    Bex::CSimpleString m_strReplyTo;
    Bex::CSimpleString m_strReturnReceiptTo;
    Bex::CSimpleString m_strDispositionNotificationTo;
    Bex::CSimpleString m_strInReplyTo;
    Bex::CSimpleString m_strPrecedence;
    Bex::CSimpleString m_strAuthenticatedAs;
    Bex::CSimpleString m_strResentFor;
};
