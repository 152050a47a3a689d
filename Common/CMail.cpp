#include "Common/CMail.h"

#include "Bex/TextFunctions.h"
#include "Common/EnvelopeFields.h"
#include "Common/NormalizeAddress.h"

#include <algorithm>
#include <string>
#include <utility>

namespace {

using Lines = Bex::CList<Bex::CSimpleString>;

void AppendLine(Lines& lines, std::string_view before, std::string_view value, std::string_view after = {})
{
    Bex::CSimpleString strLine;
    strLine.Reserve(static_cast<uint32_t>(before.size() + value.size() + after.size()));
    strLine += before;
    strLine += value;
    strLine += after;
    lines.Append(std::move(strLine));
}

void AppendField(Lines& lines, std::string_view before, const Bex::CSimpleString& strValue, std::string_view after = {})
{
    if (!strValue.IsEmpty())
        AppendLine(lines, before, strValue, after);
}

} // namespace

CMail::CMail() : m_received(false), m_recipients(false) {}

CMail::CMail(const CMail& other, std::string_view recipient)
    : CMessage(other), m_received(other.m_received), m_recipients(false), m_addressing(other.m_addressing)
{
    SetRecipients(recipient);
}

int CMail::SetHeader(Bex::CSimpleString strName, Bex::CSimpleString strValue)
{
    if (SetEnvelopeHeader(strName, strValue))
        return 1;
    static constexpr struct
    {
        const char* pszName;
        Bex::CSimpleString SAddressing::*pField;
    } FIELDS[] = {
        {"To", &SAddressing::strTo},
        {"Cc", &SAddressing::strCc},
        {"Bcc", &SAddressing::strBcc},
        {"Reply-To", &SAddressing::strReplyTo},
        {"In-Reply-To", &SAddressing::strInReplyTo},
        {"Precedence", &SAddressing::strPrecedence},
        {"X-Authenticated-As", &SAddressing::strAuthenticatedAs},
        {"X-Resent-For", &SAddressing::strResentFor},
    };
    for (const auto& field : FIELDS) {
        if (strName.EqualsNoCase(field.pszName)) {
            m_addressing.*field.pField = std::move(strValue);
            return 1;
        }
    }
    if (strName.EqualsNoCase("Received")) {
        m_received.Append(std::move(strValue));
    } else if (strName.EqualsNoCase("Return-Receipt-To")) {
        m_addressing.strReturnReceiptTo = NormalizeAddress(strValue);
    } else if (strName.EqualsNoCase("Disposition-Notification-To")) {
        m_addressing.strDispositionNotificationTo = NormalizeAddress(strValue);
    } else {
        return CMessage::SetHeader(std::move(strName), std::move(strValue));
    }
    return 1;
}

/// It will stand in several fields.
Bex::CSimpleString CMail::Sender(const Bex::CSimpleString& strValue)
{
    Bex::CSimpleString strAddress = NormalizeAddress(strValue);
    m_bEnvelopeTooBig = m_bEnvelopeTooBig || strAddress.Length() > LONGEST_ADDRESS;
    return strAddress.Length() > LONGEST_ADDRESS ? Bex::CSimpleString() : strAddress;
}

/// The fields that tell sender and recipients of the envelope; those that other mail servers write count only while
/// nothing better was met.
bool CMail::SetEnvelopeHeader(const Bex::CSimpleString& strName, const Bex::CSimpleString& strValue)
{
    using EnvelopeFields::IsOneOf;
    if (IsOneOf(strName, EnvelopeFields::SENDER)) {
        SetEnvelopeSender(Sender(strValue));
        m_addressing.bSenderIsFinal = true;
    } else if (strName.EqualsNoCase("X-Sender")) {
        if (LacksSender())
            SetEnvelopeSender(Sender(strValue));
    } else if (strName.EqualsNoCase("Return-Path")) {
        SetReturnPath(Sender(strValue));
    } else if (IsOneOf(strName, EnvelopeFields::RECIPIENTS)) {
        SetRecipients(NormalizeAddress(strValue));
    } else if (IsOneOf(strName, EnvelopeFields::FOREIGN_RECIPIENTS)) {
        if (m_recipients.IsEmpty())
            SetRecipients(NormalizeAddress(strValue));
    } else if (strName.EqualsNoCase("Delivered-To")) {
        if (m_recipients.IsEmpty())
            SetRecipients(NormalizeAddress(strValue.View().substr(strValue.View().rfind(' ') + 1)));
    } else {
        return false;
    }
    return true;
}

void CMail::BuildHeaderLines(Lines& lines, EWriteMode mode) const
{
    if (mode == EWriteMode::Envelope && !m_recipients.IsEmpty()) {
        AppendLine(lines, "X-Envelope-From: ", m_addressing.strEnvelopeSender);
        AppendLine(lines, "X-Envelope-To: ", FirstRecipient());
    }
    if (mode == EWriteMode::Queue) {
        AppendLine(lines, "X-Envelope-From: ", m_addressing.strEnvelopeSender);
        AppendLine(lines, "X-Envelope-To: <", JoinedRecipients(), ">");
        AppendLine(lines, "Return-Path: <", m_addressing.strReturnPath, ">"); // it need not be the sender
    }
    if (mode == EWriteMode::ReturnPath)
        AppendLine(lines, "Return-Path: <", m_addressing.strReturnPath, ">");
    {
        Bex::CScopedLock lock(m_received.LockObject());
        for (const Bex::CSimpleString& strValue : m_received)
            AppendLine(lines, "Received: ", strValue);
    }
    AppendField(lines, "Message-ID: <", MessageID(), ">");
    if (!FromName().IsEmpty())
        lines.Append(Bex::CSimpleString::Formatted("From: \"%s\" <%s>", FromName().Text(), FromAddress().Text()));
    else
        AppendField(lines, "From: <", FromAddress(), ">");
    AppendField(lines, "Organization: ", Organization());
    AppendField(lines, "To: ", m_addressing.strTo);
    AppendField(lines, "Cc: ", m_addressing.strCc);
    AppendField(lines, "Bcc: ", m_addressing.strBcc);
    AppendField(lines, "Subject: ", Subject());
    AppendField(lines, "Date: ", Date());
    AppendField(lines, "Return-Receipt-To: <", m_addressing.strReturnReceiptTo, ">");
    AppendField(lines, "Disposition-Notification-To: <", m_addressing.strDispositionNotificationTo, ">");
    AppendField(lines, "MIME-Version: ", MimeVersion());
    AppendField(lines, "Content-Type: ", ContentType());
    AppendField(lines, "Content-Transfer-Encoding: ", TransferEncoding());
    AppendField(lines, "Content-Language: ", Language());
    AppendField(lines, "Content-Disposition: ", Disposition());
    AppendField(lines, "Content-Description: ", Description());
    lines.AppendAll(ExtraHeaderLines());
    AppendField(lines, "References: ", References());
    AppendField(lines, "In-Reply-To: ", m_addressing.strInReplyTo);
    AppendField(lines, "Reply-To: ", m_addressing.strReplyTo);
    AppendField(lines, "Precedence: ", m_addressing.strPrecedence);
    AppendField(lines, "X-Authenticated-As: ", m_addressing.strAuthenticatedAs);
    AppendField(lines, "X-Resent-For: ", m_addressing.strResentFor);
}

void CMail::SetEnvelopeSender(const Bex::CSimpleString& strAddress)
{
    m_addressing.strEnvelopeSender = strAddress;
    m_addressing.strReturnPath = strAddress;
    if (FromAddress().IsEmpty())
        SetFromAddress(strAddress);
}

void CMail::SetReturnPath(const Bex::CSimpleString& strAddress)
{
    m_addressing.strReturnPath = strAddress;
    if (LacksSender())
        m_addressing.strEnvelopeSender = strAddress;
    if (FromAddress().IsEmpty())
        SetFromAddress(strAddress);
}

Bex::CSimpleString CMail::FirstRecipient() const
{
    Bex::CScopedLock lock(m_recipients.LockObject());
    return m_recipients.IsEmpty() ? Bex::CSimpleString() : *m_recipients.begin();
}

/// As SetRecipients takes them.
Bex::CSimpleString CMail::JoinedRecipients() const
{
    Bex::CScopedLock lock(m_recipients.LockObject());
    std::string strText; // the other kind measures itself each time
    for (const Bex::CSimpleString& strRecipient : m_recipients)
        strText.append(strText.empty() ? "" : ",").append(strRecipient.View());
    return Bex::CSimpleString(std::string_view(strText));
}

void CMail::SetRecipients(std::string_view text)
{
    constexpr std::string_view SEPARATORS = ",;<>";
    Lines recipients(false); // the text may belong to one of the old ones
    const auto nSeparators =
        std::count_if(text.begin(), text.end(), [&](char c) { return SEPARATORS.find(c) != SEPARATORS.npos; });
    bool bTooBig = nSeparators >= MAX_RECIPIENTS;
    if (!bTooBig)
        Bex::Tokenize(text, SEPARATORS, recipients, false);
    for (const Bex::CSimpleString& strRecipient : recipients)
        bTooBig = bTooBig || strRecipient.Length() > LONGEST_ADDRESS;
    if (bTooBig)
        recipients.RemoveAll();
    m_bEnvelopeTooBig = m_bEnvelopeTooBig || bTooBig;
    m_recipients = std::move(recipients);
    if (m_addressing.strTo.IsEmpty() && !m_recipients.IsEmpty())
        m_addressing.strTo = Bex::CSimpleString::Formatted("<%s>", FirstRecipient().Text());
}
