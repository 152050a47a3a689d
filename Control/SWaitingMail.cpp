#include "Control/SWaitingMail.h"

#include "Bex/TextFunctions.h"
#include "Common/ReportText.h"
#include "Control/CControlError.h"
#include "Platform/CDirectoryListing.h"
#include "Platform/Clock.h"
#include "Platform/FileBeginning.h"
#include "SMTPc/ErrorReport.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr int64_t NANOSECONDS = 1'000'000'000;
constexpr size_t LONGEST_REPORT = 65536;

/// Bytes in memory, as the file that a mail is read from.
class CBytesFile : public Bex::CFile
{
public:
    explicit CBytesFile(std::string_view bytes) : m_bytes(bytes) {}

    uint32_t Read(void* pBuffer, uint32_t nCount) override
    {
        const size_t nRead = std::min<size_t>(nCount, m_bytes.size() - m_nPosition);
        std::memcpy(pBuffer, m_bytes.data() + m_nPosition, nRead);
        m_nPosition += nRead;
        return static_cast<uint32_t>(nRead);
    }
    int64_t Seek(int64_t, Platform::ESeekFrom origin) override
    {
        m_nPosition = origin == Platform::ESeekFrom::End ? m_bytes.size() : 0;
        return static_cast<int64_t>(m_nPosition);
    }

private:
    std::string_view m_bytes;
    size_t m_nPosition = 0;
};

bool EndsHeaderBlock(std::string_view bytes)
{
    return bytes.find("\n\r\n") != std::string_view::npos || bytes.find("\n\n") != std::string_view::npos;
}

std::string LastErrorOf(const SMailName& name)
{
    Platform::SFileBeginning report;
    const Bex::CSimpleString strMail = Bex::PathBelow(PlaceDirectory(name.place), name.strName);
    if (name.place != EPlace::Outgoing ||
        !Platform::ReadBeginning(ErrorReportPath(strMail).Text(), LONGEST_REPORT, report))
        return {};
    return LastErrorIn(report.strBytes);
}

void ReadEnvelope(std::string_view bytes, bool bComplete, SWaitingMail& waiting)
{
    if (!bComplete) // the last address may be a part of one
        bytes = bytes.substr(0, bytes.find_last_of(",\n") + 1);
    const CMail mail = MailOf(bytes);
    waiting.strSender = mail.EnvelopeSender().Text();
    waiting.strMessageID = mail.MessageID().Text();
    for (const Bex::CSimpleString& strRecipient : mail.Recipients())
        waiting.recipients.emplace_back(strRecipient.Text());
    waiting.bMoreRecipients = !bComplete;
}

bool MatchesAny(const std::vector<std::string>& texts, const std::string& strPattern)
{
    return std::ranges::any_of(texts,
                               [&](const std::string& strText) { return Bex::WildcardMatch(strText, strPattern); });
}

} // namespace

CMail MailOf(std::string_view bytes)
{
    CMail mail;
    CBytesFile file(bytes);
    mail.Read(file, true); // what is too big has no envelope
    return mail;
}

std::string LastErrorIn(std::string_view report)
{
    std::string_view last; // line
    std::string_view lastReply;
    while (!report.empty()) {
        std::string_view line = Bex::TakeLine(report);
        if (line.starts_with(ReportText::REASON)) {
            line.remove_prefix(std::strlen(ReportText::REASON));
            return std::string(line.substr(0, line.rfind(ReportText::REASON_END)));
        }
        if (line.starts_with(ReportText::REPLY))
            lastReply = line.substr(std::strlen(ReportText::REPLY));
        if (!line.empty())
            last = line;
    }
    return std::string(lastReply.empty() ? last : lastReply);
}

std::optional<SWaitingMail> SWaitingMail::Look(const SMailName& name, size_t nHeaderBytes)
{
    SWaitingMail mail{.name = name};
    Platform::SFileBeginning file;
    if (!Platform::ReadBeginning(name.Path().Text(), nHeaderBytes, file)) {
        if (Platform::LastError().iLibError == Platform::LIB_NO_ENTRY)
            return std::nullopt;
        mail.strError = "cannot be read: " + ErrorText(Platform::LastError());
        return mail;
    }
    mail.iCreated = file.iCreated / NANOSECONDS;
    mail.iSize = file.iSize;
    const bool bAll = file.strBytes.size() < nHeaderBytes;
    ReadEnvelope(file.strBytes, bAll || EndsHeaderBlock(file.strBytes), mail);
    mail.strError = LastErrorOf(name);
    return mail;
}

int64_t SWaitingMail::Age() const { return std::max<int64_t>(0, Platform::NowSeconds() - iCreated); }

bool SWaitingMail::IsUnfinished() const { return iSize == 0 && strError.empty(); }

bool SMailFilter::Matches(const SWaitingMail& mail) const
{
    return (strFrom.empty() || Bex::WildcardMatch(mail.strSender, strFrom)) &&
           (strTo.empty() || MatchesAny(mail.recipients, strTo)) && mail.Age() > iOlderThan;
}

void ForEachMailFile(EPlace place, const std::function<bool(SMailName)>& Visit)
{
    const Bex::CSimpleString strDirectory = PlaceDirectory(place);
    Platform::CDirectoryListing listing;
    if (!listing.Read(strDirectory.Text()))
        throw CControlError(EExit::Wrong, std::string("cannot list ") + strDirectory.Text() + ": " +
                                              ErrorText(Platform::LastError()));
    for (size_t nIndex = 0; nIndex < listing.Count(); ++nIndex) {
        const Platform::SDirectoryEntry entry = listing.At(nIndex);
        std::optional<SMailName> name = SMailName::OfFile(place, entry.pszName);
        if (name && entry.bRegular && !Visit(std::move(*name)))
            return;
    }
}

void ForEachWaiting(EPlace place, const SMailFilter& filter, const std::function<bool(SWaitingMail)>& Visit)
{
    ForEachMailFile(place, [&](const SMailName& name) {
        std::optional<SWaitingMail> mail = SWaitingMail::Look(name);
        if (mail && mail->bMoreRecipients && !filter.strTo.empty()) // a recipient may stand anywhere in the block
            mail = SWaitingMail::Look(name, CMessage::MAX_HEADER_BYTES);
        return !mail || !filter.Matches(*mail) || Visit(std::move(*mail));
    });
}
