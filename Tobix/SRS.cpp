#include "Tobix/SRS.h"

#include "Common/Encodings.h"
#include "Common/Hmac.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace {

constexpr std::string_view BASE32 = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567"; // RFC 4648 6
constexpr int64_t SECONDS_PER_DAY = 86400;
constexpr int64_t STAMP_PERIOD = 1024; // days
constexpr size_t KEY_LENGTH = 5;
constexpr uint32_t HASH_BYTES = 3;
constexpr size_t TAG_LENGTH = 5; // "SRS0" or "SRS1" and a separator

/// Two characters, the low one first.
std::string TimeStamp(Bex::CTime now)
{
    const auto nDay = static_cast<size_t>(std::max<int64_t>(now.Seconds(), 0) / SECONDS_PER_DAY % STAMP_PERIOD);
    return {BASE32[nDay % BASE32.size()], BASE32[nDay / BASE32.size()]};
}

/// A zero byte in the digest ends what counts of it.
std::string Hash(std::string_view text, std::string_view challenge)
{
    std::array<char, KEY_LENGTH> key{};
    std::copy_n(challenge.begin(), std::min(challenge.size(), key.size()), key.begin());
    const CSHA1::Digest digest = HmacSha1(text, {key.data(), key.size()});
    const auto nBytes = std::find(digest.begin(), digest.begin() + HASH_BYTES, 0) - digest.begin();
    return std::string(Base64Encode(digest.data(), static_cast<uint32_t>(nBytes)).View());
}

bool HasTag(std::string_view address, std::string_view tag)
{
    return address.size() >= TAG_LENGTH && address.starts_with(tag) &&
           std::string_view("+-=").find(address[TAG_LENGTH - 1]) != std::string_view::npos;
}

Bex::CSimpleString Address(std::string_view local, std::string_view domain)
{
    Bex::CSimpleString strResult(local);
    strResult += "@";
    strResult += domain;
    return strResult;
}

} // namespace

Bex::CSimpleString SRSRewrite(const Bex::CSimpleString& strAddress, const Bex::CSimpleString& strSRSDomain,
                              const Bex::CSimpleString& strChallenge, Bex::CTime now)
{
    if (strAddress.IsEmpty())
        return {};
    const size_t nAt = strAddress.View().find('@');
    const std::string strLocal(strAddress.View().substr(0, nAt));
    const std::string strDomain(nAt == std::string_view::npos ? "" : strAddress.View().substr(nAt + 1));
    if (HasTag(strAddress, "SRS1"))
        return Address(strLocal, strSRSDomain);
    const bool bFirst = !HasTag(strAddress, "SRS0");
    const std::string strHashed =
        bFirst ? TimeStamp(now) + "=" + strDomain + "=" + strLocal : strDomain + "==" + strLocal.substr(TAG_LENGTH);
    return Address((bFirst ? "SRS0+" : "SRS1+") + Hash(strHashed, strChallenge) + "=" + strHashed, strSRSDomain);
}
