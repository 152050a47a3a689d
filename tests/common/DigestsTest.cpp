#include "Common/Encodings.h"
#include "Common/Hmac.h"

#include <gtest/gtest.h>
#include <string>

namespace {

template <class CDigest>
std::string Hex(std::string_view text)
{
    CDigest digest;
    digest.Update(text.data(), text.size());
    return HexText(digest.Finalise().data(), CDigest::DIGEST_LENGTH).Text();
}

std::string Md5(std::string_view text, std::string_view key) { return HexText(HmacMd5(text, key).data(), 16).Text(); }
std::string Sha1(std::string_view text, std::string_view key) { return HexText(HmacSha1(text, key).data(), 20).Text(); }

TEST(MD5, GivesThePublishedDigests) // RFC 1321 A.5
{
    EXPECT_EQ(Hex<CMD5>(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(Hex<CMD5>("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(Hex<CMD5>("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
              "d174ab98d277d9f5a5611c2c9f419d9f");
    EXPECT_EQ(Hex<CMD5>(std::string(1000000, 'a')), "7707d6ae4e027c70eea2a935c2296f21");
}

TEST(SHA1, GivesThePublishedDigests) // FIPS 180-1 A to C
{
    EXPECT_EQ(Hex<CSHA1>("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(Hex<CSHA1>("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    EXPECT_EQ(Hex<CSHA1>(std::string(1000000, 'a')), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

template <class CDigest>
void ExpectNoDependenceOnPieces()
{
    for (size_t nLength = 0; nLength <= 200; ++nLength) {
        const std::string strText(nLength, 'x');
        for (size_t nPiece : {1, 7, 63, 64, 65}) {
            CDigest digest;
            for (size_t i = 0; i < nLength; i += nPiece)
                digest.Update(strText.data() + i, std::min(nPiece, nLength - i));
            ASSERT_EQ(HexText(digest.Finalise().data(), CDigest::DIGEST_LENGTH).View(), Hex<CDigest>(strText));
        }
    }
}

TEST(Digests, DoNotDependOnThePiecesTheyAreFed)
{
    ExpectNoDependenceOnPieces<CMD5>();
    ExpectNoDependenceOnPieces<CSHA1>();
}

TEST(HmacMd5, GivesThePublishedValues) // RFC 2202 2
{
    EXPECT_EQ(Md5("what do ya want for nothing?", "Jefe"), "750c783e6ab0b503eaa86e310a5db738");
    EXPECT_EQ(Md5("Test Using Larger Than Block-Size Key - Hash Key First", std::string(80, '\xaa')),
              "6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd");
    EXPECT_EQ(Md5(std::string(200, 'x'), std::string(64, 'k')), "8bb60b2912c5cb514f90c42bbde7456e");
}

TEST(HmacSha1, TakesSixteenBytesOfTheInnerDigest)
{
    EXPECT_EQ(Sha1("", ""), "b59d5527dc0e0c5272f4f7415f791ab75b48449e");
    EXPECT_EQ(Sha1("what do ya want for nothing?", "Jefe"), "677d29ef1e2097fa032cb562d120125e9ada4c0c");
    EXPECT_EQ(Sha1("Hi There", std::string(64, '\x0b')), "bccd59d6e931ab134e88e4570293ec3e5e64c850");
}

TEST(Hmac, TakesSixteenBytesOfALongKeysDigest)
{
    const std::string strKey(100, 'k');
    CMD5 md5;
    md5.Update(strKey.data(), strKey.size());
    CSHA1 sha1;
    sha1.Update(strKey.data(), strKey.size());
    const auto shortMd5 = md5.Finalise();
    const auto shortSha1 = sha1.Finalise();
    EXPECT_EQ(Md5("text", strKey), Md5("text", {reinterpret_cast<const char*>(shortMd5.data()), 16}));
    EXPECT_EQ(Sha1("text", strKey), Sha1("text", {reinterpret_cast<const char*>(shortSha1.data()), 16}));
}

} // namespace
