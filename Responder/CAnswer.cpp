#include "Responder/CAnswer.h"

#include "Bex/TextFunctions.h"
#include "Common/UniqueText.h"
#include "Platform/CFlushGroup.h"

#include <algorithm>
#include <stdexcept>

namespace {

constexpr size_t LONGEST_NAME = 200;

[[noreturn]] void ThrowFailure(const std::string& strAction, const Bex::CSimpleString& strPath, Platform::SError error)
{
    throw std::runtime_error(strAction + " \"" + strPath.Text() + "\" (error " + std::to_string(error.iLibError) + ")");
}

std::string QuotedName(std::string_view name)
{
    if (HasEightBit(name))
        return HeaderText("From", name, LONGEST_NAME) + "\r\n\t";
    std::string strName = OneLine(name, LONGEST_NAME);
    std::erase_if(strName, [](char c) { return c == '"' || c == '\\'; });
    return "\"" + strName + "\" ";
}

} // namespace

CAnswer::CAnswer(const std::string& strEnvelopeTo, std::string_view answeredID, std::string_view answeredReferences)
    : m_strTo(strEnvelopeTo), m_lines(false)
{
    AddField("Auto-Submitted", "auto-replied"); // RFC 3834 5
    if (answeredID.empty())
        return;
    AddField("In-Reply-To", std::string("<").append(OneLine(answeredID, LONGEST_NAME)).append(">"));
    AddField("References", AppendReference(answeredReferences, answeredID));
}

void CAnswer::AddField(std::string_view name, std::string_view value)
{
    AddLine(std::string(name).append(": ").append(value));
}

void CAnswer::AddText(std::string_view name, std::string_view value) { AddField(name, HeaderText(name, value)); }

void CAnswer::AddLine(const std::string& strLine) { m_lines.Append(Bex::CSimpleString(strLine)); }

void CAnswer::SetText(const std::string& strBody)
{
    CBody body;
    body.SetSize(static_cast<uint32_t>(strBody.size()));
    std::copy(strBody.begin(), strBody.end(), body.Data());
    SetBody(std::move(body));
}

void CAnswer::BuildHeaderLines(Bex::CList<Bex::CSimpleString>& lines, EWriteMode) const
{
    const auto Append = [&](const std::string& strLine) { lines.Append(Bex::CSimpleString(strLine)); };
    const std::string strFrom(FromAddress().View());
    Append("X-Envelope-From: <>");
    Append("X-Envelope-To: " + m_strTo);
    Append("Message-ID: <" + UniqueText() + "@" + strFrom.substr(strFrom.rfind('@') + 1) + ">");
    Append("From: " + (FromName().IsEmpty() ? "" : QuotedName(FromName())) + "<" + strFrom + ">");
    Append("To: " + m_strTo);
    Append("Date: " + std::string(Date().View()));
    Append("MIME-Version: 1.0");
    lines.AppendAll(m_lines);
}

void CAnswer::Queue(const Bex::CSimpleString& strPath) const
{
    const std::string strDirectory = DirectoryOf(strPath);
    Platform::CFlushGroup group;
    if (!group.Add(strDirectory.c_str()))
        ThrowFailure("cannot open the directory of", strPath, Platform::LastError());
    const SSaveResult saved = SaveNew(strPath, EWriteMode::Envelope);
    if (saved.result == ESaveResult::Exists)
        throw std::runtime_error(std::string("there is a mail \"") + strPath.Text() + "\" already");
    if (!saved)
        ThrowFailure("cannot write", strPath, saved.error);
    group.MarkWritten(strDirectory.c_str());
    if (!group.Flush())
        ThrowFailure("cannot make durable", strPath, Platform::LastError());
}

void CAnswer::QueueInto(const Bex::CSimpleString& strDirectory) const
{
    Queue(Bex::JoinPath(strDirectory, Bex::CSimpleString("b_" + UniqueText() + ".eml")));
}

std::string DirectoryOf(const Bex::CSimpleString& strPath)
{
    const size_t nSlash = strPath.View().rfind('/');
    return nSlash == std::string_view::npos ? "." : std::string(strPath.View().substr(0, nSlash + 1));
}

bool IsUsableAddress(std::string_view address)
{
    constexpr size_t LONGEST_ADDRESS = 320; // RFC 5321 4.5.3.1
    return !address.empty() && address.size() <= LONGEST_ADDRESS &&
           std::none_of(address.begin(), address.end(), [](char c) {
               return static_cast<unsigned char>(c) <= ' ' || c == '\x7f' ||
                      std::string_view(",;<>()\"").find(c) != std::string_view::npos;
           });
}
