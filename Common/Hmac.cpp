#include "Common/Hmac.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t BLOCK_LENGTH = 64;
using Block = std::array<uint8_t, BLOCK_LENGTH>;

template <class CDigest>
typename CDigest::Digest PaddedDigest(Block key, uint8_t byPad, const void* pBytes, size_t nLength)
{
    std::transform(key.begin(), key.end(), key.begin(), [byPad](uint8_t by) { return uint8_t(by ^ byPad); });
    CDigest digest;
    digest.Update(key.data(), key.size());
    digest.Update(pBytes, nLength);
    return digest.Finalise();
}

/// RFC 2104 2, where of a digest that becomes key or text only the first nKept bytes count.
template <class CDigest>
typename CDigest::Digest Hmac(std::string_view text, std::string_view key, size_t nKept)
{
    Block padded{};
    if (key.size() > padded.size()) {
        CDigest digest;
        digest.Update(key.data(), key.size());
        std::copy_n(digest.Finalise().begin(), nKept, padded.begin());
    } else {
        std::copy(key.begin(), key.end(), padded.begin());
    }
    auto inner = PaddedDigest<CDigest>(padded, 0x36, text.data(), text.size());
    return PaddedDigest<CDigest>(padded, 0x5c, inner.data(), nKept);
}

} // namespace

CMD5::Digest HmacMd5(std::string_view text, std::string_view key) { return Hmac<CMD5>(text, key, CMD5::DIGEST_LENGTH); }

CSHA1::Digest HmacSha1(std::string_view text, std::string_view key)
{
    constexpr size_t KEPT = 16;
    return Hmac<CSHA1>(text, key, KEPT);
}
