#include "Responder/AnsweredMail.h"

#include "Bex/TextFunctions.h"
#include "Platform/Clock.h"

#include <algorithm>
#include <initializer_list>
#include <stdexcept>
#include <string>

namespace {

bool IsOneOf(std::string_view text, std::initializer_list<std::string_view> list)
{
    return std::any_of(list.begin(), list.end(), [&](std::string_view item) { return Bex::EqualNoCase(text, item); });
}

std::string_view LocalPart(std::string_view address) { return address.substr(0, address.rfind('@')); }

/// Of a header line that only programs write: what it says about automatic replies.
bool ForbidsReply(std::string_view line)
{
    const size_t nColon = std::min(line.find(':'), line.size());
    const std::string_view name = Bex::TrimmedView(line.substr(0, nColon));
    std::string_view value = line.substr(std::min(nColon + 1, line.size()));
    value = Bex::TrimmedView(value.substr(0, value.find_first_of(";(")));
    if (Bex::EqualNoCase(name, "Auto-Submitted"))
        return !Bex::EqualNoCase(value, "no");
    if (Bex::EqualNoCase(name, "X-Auto-Response-Suppress"))
        return !Bex::EqualNoCase(value, "none");
    if (Bex::EqualNoCase(name, "X-Spam-Flag"))
        return Bex::EqualNoCase(value, "yes");
    return Bex::StartsWithNoCase(name, "List-") || IsOneOf(name, {"X-Loop", "X-Autoreply", "X-Autorespond",
                                                                  "X-Autoresponder", "Mailing-List", "X-Mailing-List"});
}

bool IsOfAddress(char c)
{
    return static_cast<unsigned char>(c) > ' ' && std::string_view(",;:<>()\"").find(c) == std::string_view::npos;
}

/// The list of addresses has this one as it stands, and not only as a part of another.
bool Names(std::string_view list, std::string_view address)
{
    for (size_t n = list.find(address); n != std::string_view::npos; n = list.find(address, n + 1)) {
        const size_t nEnd = n + address.size();
        if ((n == 0 || !IsOfAddress(list[n - 1])) && (nEnd == list.size() || !IsOfAddress(list[nEnd])))
            return true;
    }
    return false;
}

} // namespace

CMail LoadMail(const Bex::CSimpleString& strPath, bool bHeadersOnly)
{
    Bex::CFile file;
    return LoadMail(strPath, bHeadersOnly, file);
}

CMail LoadMail(const Bex::CSimpleString& strPath, bool bHeadersOnly, Bex::CFile& file)
{
    constexpr uint64_t LONGEST_WAIT = 10000; // milliseconds
    constexpr unsigned PAUSE = 100;
    for (const uint64_t ui64Start = Platform::TickCount();; Platform::SleepMillis(PAUSE)) {
        CMail mail;
        const SLoadResult loaded = mail.Load(strPath, bHeadersOnly, file);
        if (loaded)
            return mail;
        if (loaded.result != ELoadResult::Busy || Platform::TickCount() - ui64Start >= LONGEST_WAIT)
            throw std::runtime_error(std::string("cannot read \"") + strPath.Text() + "\" (error " +
                                     std::to_string(loaded.error.iLibError) + ")");
    }
}

bool IsBounceSender(std::string_view address)
{
    return address.empty() ||
           IsOneOf(LocalPart(address), {"mailer-daemon", "mail-daemon", "maildaemon", "mailerdaemon"});
}

bool IsRobotSender(std::string_view address)
{
    const std::string_view local = LocalPart(address);
    if (IsBounceSender(address) || IsOneOf(local, {"majordomo", "listserv", "listmaster", "daemon", "bounce", "bounces",
                                                   "autoresponder", "auto-reply", "autoreply", "nobody"}))
        return true;
    for (const std::string_view beginning :
         {"owner-", "bounce-", "bounces-", "bounce+", "bounces+", "noreply", "no-reply", "no_reply", "no.reply",
          "donotreply", "do-not-reply", "do_not_reply"}) {
        if (Bex::StartsWithNoCase(local, beginning))
            return true;
    }
    const Bex::CSimpleString strLocal = Bex::CSimpleString(local).Lowered();
    for (const std::string_view ending : {"-owner", "-request", "-bounce", "-bounces", "-noreply", "-no-reply"}) {
        if (strLocal.View().ends_with(ending))
            return true;
    }
    return strLocal.View().find("-bounces+") != std::string_view::npos;
}

bool IsAddressedToRecipient(const CMail& mail)
{
    const Bex::CSimpleString strAddress = mail.FirstRecipient().Lowered();
    return !strAddress.IsEmpty() && (Names(mail.To().Lowered(), strAddress) || Names(mail.Cc().Lowered(), strAddress));
}

bool IsBulk(const CMail& mail) { return IsOneOf(Bex::TrimmedView(mail.Precedence()), {"bulk", "list", "junk"}); }

bool IsAutomatic(const CMail& mail)
{
    if (IsBulk(mail) || Bex::StartsWithNoCase(mail.Precedence(), "auto") ||
        Bex::StartsWithNoCase(mail.ContentType(), "multipart/report"))
        return true;
    const auto& lines = mail.ExtraHeaderLines();
    for (const Bex::CSimpleString& strLine : lines) {
        if (ForbidsReply(strLine))
            return true;
    }
    return false;
}
