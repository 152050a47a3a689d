#include "Responder/CReplyRecord.h"

#include "Bex/CReplacingFile.h"
#include "Bex/TextFunctions.h"
#include "Common/AccountLock.h"
#include "Platform/Clock.h"
#include "Platform/FileSystem.h"

#include <charconv>
#include <stdexcept>

namespace {

constexpr int64_t INTERVAL = int64_t{24} * 60 * 60; // seconds
constexpr unsigned LOCK_WAIT_MILLIS = 60000;
constexpr uint32_t LONGEST_LINE = 1024;
constexpr size_t LONGEST_ADDRESS = 320; // RFC 5321 4.5.3.1

} // namespace

CReplyRecord::CReplyRecord(const Bex::CSimpleString& strMailbox)
    : m_strPath(Bex::PathBelow(strMailbox, "responder.replied")), m_lock(AccountLock(m_strPath))
{
    if (!m_lock.Lock(LOCK_WAIT_MILLIS))
        throw std::runtime_error(std::string("cannot lock \"") + m_strPath.Text() + "\"");
    Load();
}

/// What cannot be understood is dropped with what is too old. A time to come does not count: the clock was wrong then.
void CReplyRecord::Load()
{
    if (Platform::KindOf(m_strPath.Text()) == Platform::EPathKind::Missing)
        return;
    const int64_t iNow = Platform::NowSeconds();
    Bex::CTextFile file;
    file.Open(m_strPath, Bex::CFile::modeRead | Bex::CFile::typeBinary | Bex::CFile::onlyRegular);
    Bex::CSimpleString strLine;
    while (m_senders.size() < MOST_SENDERS && file.ReadString(strLine, LONGEST_LINE)) {
        const std::string_view line = Bex::TrimmedView(strLine);
        int64_t iTime = 0;
        const auto [pEnd, error] = std::from_chars(line.data(), line.data() + line.size(), iTime);
        const std::string_view address = Bex::TrimmedView(line.substr(static_cast<size_t>(pEnd - line.data())));
        if (error == std::errc() && !address.empty() && iTime <= iNow && iTime > iNow - INTERVAL)
            m_senders.emplace(address, iTime);
    }
    file.Close();
}

bool CReplyRecord::Add(std::string_view sender)
{
    const std::string strSender(Bex::CSimpleString(sender).Lowered().View());
    if (sender.size() > LONGEST_ADDRESS || m_senders.contains(strSender) || m_senders.size() >= MOST_SENDERS)
        return false;
    m_senders.emplace(strSender, Platform::NowSeconds());
    Save();
    return true;
}

void CReplyRecord::TakeBack(std::string_view sender)
{
    m_senders.erase(std::string(Bex::CSimpleString(sender).Lowered().View()));
    Save();
}

void CReplyRecord::Save() const
{
    Bex::CReplacingFile file(m_strPath);
    for (const auto& [strSender, iTime] : m_senders)
        file.WriteString(std::to_string(iTime) + " " + strSender + "\n");
    file.MakeDurable();
    file.Commit();
}
