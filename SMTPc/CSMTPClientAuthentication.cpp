// The AUTH exchanges of CSMTPClient (RFC 4954): every answer is kept from the transcript, the console and the log.

#include "Common/Encodings.h"
#include "Common/Hmac.h"
#include "SMTPc/CSMTPClient.h"

namespace {

constexpr int ACCEPTED = 235;
constexpr int CHALLENGE = 334;
constexpr int CHALLENGE_ALSO = 330;

Bex::CSimpleString Sha1Text(const Bex::CSimpleString& strChallenge, const Bex::CSimpleString& strKey)
{
    const CSHA1::Digest digest = HmacSha1(strChallenge, strKey);
    return HexText(digest.data(), static_cast<uint32_t>(digest.size()));
}

Bex::CSimpleString Md5Text(const Bex::CSimpleString& strChallenge, const Bex::CSimpleString& strKey)
{
    const CMD5::Digest digest = HmacMd5(strChallenge, strKey);
    return HexText(digest.data(), static_cast<uint32_t>(digest.size()));
}

} // namespace

bool CSMTPClient::AuthCramSha1(const Bex::CSimpleString& strUser, const Bex::CSimpleString& strPassword)
{
    return AuthCram("AUTH CRAM-SHA1\r\n", Sha1Text, strUser, strPassword);
}

bool CSMTPClient::AuthCramMd5(const Bex::CSimpleString& strUser, const Bex::CSimpleString& strPassword)
{
    return AuthCram("AUTH CRAM-MD5\r\n", Md5Text, strUser, strPassword);
}

bool CSMTPClient::AuthCram(const char* pszCommand, Digest digest, const Bex::CSimpleString& strUser,
                           const Bex::CSimpleString& strPassword)
{
    HideSecret(strPassword);
    SendCommand(pszCommand);
    ExpectChallenge();
    const Bex::CSimpleString strChallenge(Base64Decode(m_strReplyText.View().substr(CReplyReader::TEXT_START)).View());
    SendAnswer(Bex::CSimpleString::Formatted("%s %s", strUser.Text(), digest(strChallenge, strPassword).Text()).View());
    return ExpectAccepted();
}

bool CSMTPClient::AuthPlain(const Bex::CSimpleString& strUser, const Bex::CSimpleString& strPassword)
{
    HideSecret(strPassword);
    std::string strMessage; // RFC 4616, without an authorisation identity
    strMessage += '\0';
    strMessage += strUser.View();
    strMessage += '\0';
    strMessage += strPassword.View();
    const Bex::CSimpleString strEncoded = HiddenBase64(strMessage);
    SendShown(Bex::CSimpleString::Formatted("AUTH PLAIN %s\r\n", strEncoded.Text()), "AUTH PLAIN ********\r\n");
    return ExpectAccepted();
}

bool CSMTPClient::AuthLogin(const Bex::CSimpleString& strUser, const Bex::CSimpleString& strPassword)
{
    HideSecret(strPassword);
    SendCommand("AUTH LOGIN\r\n");
    ExpectChallenge();
    SendAnswer(strUser);
    ExpectChallenge();
    SendAnswer(strPassword);
    return ExpectAccepted();
}

void CSMTPClient::HideSecret(std::string_view secret)
{
    if (!secret.empty())
        m_secrets.emplace_back(secret);
}

Bex::CSimpleString CSMTPClient::HiddenBase64(std::string_view bytes)
{
    Bex::CSimpleString strEncoded(Base64Encode(bytes.data(), static_cast<uint32_t>(bytes.size())).View());
    HideSecret(strEncoded);
    return strEncoded;
}

void CSMTPClient::SendAnswer(std::string_view answer)
{
    SendShown(Bex::CSimpleString::Formatted("%s\r\n", HiddenBase64(answer).Text()), "********\r\n");
}

void CSMTPClient::ExpectChallenge()
{
    const int iCode = ReadReply();
    if (iCode != CHALLENGE && iCode != CHALLENGE_ALSO)
        Refuse(iCode, EOtherReply::Temporary, __LINE__);
}

bool CSMTPClient::ExpectAccepted()
{
    const int iCode = ReadReply();
    if (iCode != ACCEPTED)
        Refuse(iCode, EOtherReply::Temporary, __LINE__);
    m_bAuthenticated = true;
    return true;
}
