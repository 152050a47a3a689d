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
    CMail(const CMail& other, std::string_view recipient);

    int SetHeader(Bex::CSimpleString strName, Bex::CSimpleString strValue) override;
    void BuildHeaderLines(Bex::CList<Bex::CSimpleString>& lines, EWriteMode mode) const override;

    /// Empty: the null sender.
    const Bex::CSimpleString& EnvelopeSender() const { return m_addressing.strEnvelopeSender; }
    /// Sets Return-Path, too, and the From address when it is empty.
    void SetEnvelopeSender(const Bex::CSimpleString& strAddress);
    /// Sets the envelope sender and the From address only while they are empty, the sender not even then when the file
    /// names the null sender.
    void SetReturnPath(const Bex::CSimpleString& strAddress);
    const Bex::CList<Bex::CSimpleString>& Recipients() const { return m_recipients; }
    Bex::CSimpleString FirstRecipient() const; ///< empty when there is none
    static constexpr ptrdiff_t MAX_RECIPIENTS = 100'000;
    static constexpr uint32_t LONGEST_ADDRESS = 65536; ///< of the envelope: a longer one cannot mean anything
    /// Replaces the recipients by the pieces of the text between ",", ";", "<" and ">"; by none, and the mail
    /// is too big to be read, when there are more than MAX_RECIPIENTS or one is longer than LONGEST_ADDRESS.
    void SetRecipients(std::string_view text);
    Bex::CList<Bex::CSimpleString>& Received() { return m_received; } ///< newest first
    const Bex::CList<Bex::CSimpleString>& Received() const { return m_received; }

    const Bex::CSimpleString& To() const { return m_addressing.strTo; }
    const Bex::CSimpleString& Cc() const { return m_addressing.strCc; }
    const Bex::CSimpleString& Bcc() const { return m_addressing.strBcc; }
    const Bex::CSimpleString& ReturnPath() const { return m_addressing.strReturnPath; }
    const Bex::CSimpleString& ReplyTo() const { return m_addressing.strReplyTo; }
    void SetReplyTo(const Bex::CSimpleString& strValue) { m_addressing.strReplyTo = strValue; }
    const Bex::CSimpleString& Precedence() const { return m_addressing.strPrecedence; }
    const Bex::CSimpleString& AuthenticatedAs() const { return m_addressing.strAuthenticatedAs; }
    const Bex::CSimpleString& ResentFor() const { return m_addressing.strResentFor; }
    void SetResentFor(const Bex::CSimpleString& strValue) { m_addressing.strResentFor = strValue; }

protected:
    bool IsEnvelopeTooBig() const override { return m_bEnvelopeTooBig; }

private:
    struct SAddressing
    {
        Bex::CSimpleString strEnvelopeSender;
        bool bSenderIsFinal = false; ///< an envelope line gave it, the null sender maybe
        Bex::CSimpleString strTo;
        Bex::CSimpleString strCc;
        Bex::CSimpleString strBcc;
        Bex::CSimpleString strReturnPath;
        Bex::CSimpleString strReplyTo;
        Bex::CSimpleString strReturnReceiptTo;
        Bex::CSimpleString strDispositionNotificationTo;
        Bex::CSimpleString strInReplyTo;
        Bex::CSimpleString strPrecedence;
        Bex::CSimpleString strAuthenticatedAs;
        Bex::CSimpleString strResentFor;
    };

    Bex::CSimpleString JoinedRecipients() const;
    Bex::CSimpleString Sender(const Bex::CSimpleString& strValue);
    bool SetEnvelopeHeader(const Bex::CSimpleString& strName, const Bex::CSimpleString& strValue);
    bool LacksSender() const { return m_addressing.strEnvelopeSender.IsEmpty() && !m_addressing.bSenderIsFinal; }

    Bex::CList<Bex::CSimpleString> m_received;
    Bex::CList<Bex::CSimpleString> m_recipients;
    bool m_bEnvelopeTooBig = false;
    SAddressing m_addressing;
};
