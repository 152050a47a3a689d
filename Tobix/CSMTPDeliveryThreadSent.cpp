// What CSMTPDeliveryThread does about a mail that a server has taken and whose file cannot be removed. The process
// remembers it to its end, so that a restart does not send it again.

#include "Bex/CThread.h"
#include "Bex/Log.h"
#include "Platform/CImmortal.h"
#include "Platform/FileIdentity.h"
#include "Platform/FileSystem.h"
#include "Tobix/CSMTPDeliveryThread.h"

#include <mutex>
#include <string>
#include <unordered_map>

namespace {

struct SSent
{
    std::mutex mutex;
    std::unordered_map<std::string, Platform::SFileIdentity> files; ///< by path
};

SSent& Sent()
{
    static Platform::CImmortal<SSent> s_sent; // threads that were given up may still come here
    return *s_sent;
}

bool IsMissing(const Bex::CSimpleString& strPath)
{
    return Platform::KindOf(strPath.Text()) == Platform::EPathKind::Missing;
}

enum class ERemoval { NotSent, Gone, Stays };

/// Another file that has got the name since then was not sent.
ERemoval RemoveIfSent(const Bex::CSimpleString& strPath)
{
    std::unique_lock lock(Sent().mutex);
    const auto found = Sent().files.find(strPath.Text());
    if (found == Sent().files.end())
        return ERemoval::NotSent;
    const Platform::SFileIdentity sent = found->second;
    Platform::SFileIdentity present;
    lock.unlock(); // the volume may hang
    const bool bOther = Platform::IdentityOf(strPath.Text(), present) && present != sent;
    Bex::CThread::EndIfAbandoned();
    if (!bOther && !Platform::RemoveFile(strPath.Text()) && !IsMissing(strPath))
        return ERemoval::Stays;
    lock.lock();
    Sent().files.erase(strPath.Text());
    return bOther ? ERemoval::NotSent : ERemoval::Gone;
}

} // namespace

void CSMTPDeliveryThread::KeepSent()
{
    Platform::SFileIdentity identity;
    if (Platform::IdentityOf(m_strMailPath.Text(), identity)) {
        const std::lock_guard lock(Sent().mutex);
        Sent().files[m_strMailPath.Text()] = identity;
    } else if (IsMissing(m_strMailPath)) {
        return ReleaseName();
    }
    m_pFiles->RetryLater(m_strFileName);
}

bool CSMTPDeliveryThread::WasSent()
{
    const ERemoval removal = RemoveIfSent(m_strMailPath);
    if (removal == ERemoval::Stays)
        m_pFiles->RetryLater(m_strFileName);
    if (removal != ERemoval::Gone)
        return removal == ERemoval::Stays;
    Bex::LogInfo(Bex::MainLog(), "removed file \"%s\", which was delivered before", m_strMailPath.Text());
    RemoveReport();
    ReleaseName();
    return true;
}
