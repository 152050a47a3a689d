#include "Common/Encodings.h"
#include "Common/Hmac.h"

#include <gtest/gtest.h>
#include <string>

namespace {

std::string Md5(std::string_view text, std::string_view key) { return HexText(HmacMd5(text, key).data(), 16).Text(); }
std::string Sha1(std::string_view text, std::string_view key) { return HexText(HmacSha1(text, key).data(), 20).Text(); }

template <class CDigest>
void ExpectDigest(std::string_view text, const char* pszHex) ///< whatever the pieces it is fed
{
    for (const size_t nPiece : {1u, 7u, 63u, 64u, 65u, 1000000u}) {
        CDigest digest;
        for (size_t i = 0; i < text.size(); i += nPiece)
            digest.Update(text.data() + i, std::min(nPiece, text.size() - i));
        EXPECT_EQ(HexText(digest.Finalise().data(), CDigest::DIGEST_LENGTH), pszHex) << text.size() << ' ' << nPiece;
    }
}

TEST(Digests, AreThePublishedOnes) // RFC 1321 A.5, FIPS 180-1 A to C; 55 and 56 bytes: the padding's two forms
{
    ExpectDigest<CMD5>("", "d41d8cd98f00b204e9800998ecf8427e");
    ExpectDigest<CMD5>(std::string(55, 'a'), "ef1772b6dff9a122358552954ad0df65");
    ExpectDigest<CMD5>(std::string(56, 'a'), "3b0c8ac703f828b04c6c197006d17218");
    ExpectDigest<CMD5>(std::string(1000000, 'a'), "7707d6ae4e027c70eea2a935c2296f21");
    ExpectDigest<CSHA1>(std::string(55, 'a'), "c1c8bbdc22796e28c0e15163d20899b65621d65a");
    ExpectDigest<CSHA1>(std::string(56, 'a'), "c2db330f6083854c99d4b5bfb6e8f29f201be699");
    ExpectDigest<CSHA1>(std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

TEST(Hmac, GivesThePublishedValuesForMd5) // RFC 2202 2
{
    EXPECT_EQ(Md5("what do ya want for nothing?", "Jefe"), "750c783e6ab0b503eaa86e310a5db738");
    EXPECT_EQ(Md5("Test Using Larger Than Block-Size Key - Hash Key First", std::string(80, '\xaa')),
              "6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd");
    EXPECT_EQ(Md5(std::string(200, 'x'), std::string(64, 'k')), "8bb60b2912c5cb514f90c42bbde7456e");
}

TEST(Hmac, TakesSixteenBytesOfTheInnerDigestAndOfALongKeysForSha1)
{
    EXPECT_EQ(Sha1("what do ya want for nothing?", "Jefe"), "677d29ef1e2097fa032cb562d120125e9ada4c0c");
    EXPECT_EQ(Sha1("Hi There", std::string(64, '\x0b')), "bccd59d6e931ab134e88e4570293ec3e5e64c850");
    EXPECT_EQ(Sha1("text", std::string(100, 'k')), "e0e4a23d41252f1b1e807c784e67bd29793a9920");
}

} // namespace
