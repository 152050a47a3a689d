#include "Bex/CSecurityException.h"

#include "Bex/SCodeText.h"

namespace Bex {

namespace {

constexpr SCodeText STATUS_TEXTS[] = {
    {0x80090300, "Not enough memory is available to complete this request"},
    {0x80090301, "The handle specified is invalid"},
    {0x80090302, "The function requested is not supported"},
    {0x80090303, "The specified target is unknown or unreachable"},
    {0x80090304, "The Local Security Authority cannot be contacted"},
    {0x80090305, "The requested security package does not exist"},
    {0x80090306, "The caller is not the owner of the desired credentials"},
    {0x80090307, "The security package failed to initialize, and cannot be installed"},
    {0x80090308, "The token supplied to the function is invalid"},
    {0x80090309, "The security package is not able to marshall the logon buffer, so the logon attempt has failed"},
    {0x8009030A, "The per-message Quality of Protection is not supported by the security package"},
    {0x8009030B, "The security context does not allow impersonation of the client"},
    {0x8009030C, "The logon attempt failed"},
    {0x8009030D, "The credentials supplied to the package were not recognized"},
    {0x8009030E, "No credentials are available in the security package"},
    {0x8009030F, "The message or signature supplied for verification has been altered"},
    {0x80090310, "The message supplied for verification is out of sequence"},
    {0x80090311, "No authority could be contacted for authentication."},
    {0x80090316, "The requested security package does not exist"},
    {0x80090317, "The context has expired and can no longer be used."},
    {0x80090318, "The supplied message is incomplete. The signature was not verified."},
    {0x80090320,
     "The credentials supplied were not complete, and could not be verified. The context could not be initialized."},
    {0x80090321, "The buffers supplied to a function was too small."},
    {0x80090322, "The target principal name is incorrect."},
    {0x80090324, "The clocks on the client and server machines are skewed."},
    {0x80090325, "The certificate chain was issued by an authority that is not trusted."},
    {0x80090326, "The message received was unexpected or badly formatted."},
    {0x80090327, "An unknown error occurred while processing the certificate."},
    {0x80090328, "The received certificate has expired."},
    {0x80090329, "The specified data could not be encrypted."},
    {0x80090330, "The specified data could not be decrypted."},
    {0x80090331, "The client and server cannot communicate, because they do not possess a common algorithm."},
    {0x80090332, "The security context could not be established due to a failure in the requested quality of service "
                 "(e.g. mutual authentication or delegation)."},
    {0x80090333,
     "A security context was deleted before the context was completed. This is considered a logon failure."},
    {0x80090334,
     "The client is trying to negotiate a context and the server requires user-to-user but didn't send a TGT reply."},
    {0x80090335, "Unable to accomplish the requested task because the local machine does not have any IP addresses."},
    {0x80090336, "The supplied credential handle does not match the credential associated with the security context."},
    {0x80090337, "The crypto system or checksum function is invalid because a required function is unavailable."},
    {0x80090338, "The number of maximum ticket referrals has been exceeded."},
    {0x80090339, "The local machine must be a Kerberos KDC (domain controller) and it is not."},
    {0x8009033A, "The other end of the security negotiation is requires strong crypto but it is not supported on the "
                 "local machine."},
    {0x8009033B, "The KDC reply contained more than one principal name."},
    {0x8009033C, "Expected to find PA data for a hint of what etype to use, but it was not found."},
    {0x8009033D, "The client certificate does not contain a valid UPN, or does not match the client name in the logon "
                 "request. Please contact your administrator."},
    {0x8009033E, "Smartcard logon is required and was not used."},
    {0x8009033F, "A system shutdown is in progress."},
    {0x80090340, "An invalid request was sent to the KDC."},
    {0x80090341, "The KDC was unable to generate a referral for the service requested."},
    {0x80090342, "The encryption type requested is not supported by the KDC."},
    {0x80090343, "An unsupported preauthentication mechanism was presented to the Kerberos package."},
    {0x80090345, "The requested operation cannot be completed. The computer must be trusted for delegation and the "
                 "current user account must be configured to allow delegation."},
    {0x80090346, "Client's supplied SSPI channel bindings were incorrect."},
    {0x80090347, "The received certificate was mapped to multiple accounts."},
    {0x80090348, "SEC_E_NO_KERB_KEY"},
    {0x80090349, "The certificate is not valid for the requested usage."},
    {0x80090350, "The system detected a possible attempt to compromise security. Please ensure that you can contact "
                 "the server that authenticated you."},
    {0x80090351, "The smartcard certificate used for authentication has been revoked. Please contact your system "
                 "administrator. There may be additional information in the event log."},
    {0x80090352, "An untrusted certificate authority was detected while processing the smartcard certificate used for "
                 "authentication. Please contact your system administrator."},
    {0x80090353, "The revocation status of the smartcard certificate used for authentication could not be determined. "
                 "Please contact your system administrator."},
    {0x80090354,
     "The smartcard certificate used for authentication was not trusted. Please contact your system administrator."},
    {0x80090355,
     "The smartcard certificate used for authentication has expired. Please contact your system administrator."},
    {0x80090356, "The Kerberos subsystem encountered an error. A service for user protocol request was made against a "
                 "domain controller which does not support service for user."},
    {0x80090357, "An attempt was made by this server to make a Kerberos constrained delegation request for a target "
                 "outside of the server's realm. This is not supported, and indicates a misconfiguration on this "
                 "server's allowed to delegate to list. Please contact your administrator."},
    {0x80090358,
     "The revocation status of the domain controller certificate used for smartcard authentication could not be "
     "determined. There is additional information in the system event log. Please contact your system administrator."},
    {0x80090359, "An untrusted certificate authority was detected while processing the domain controller certificate "
                 "used for authentication. There is additional information in the system event log. Please contact "
                 "your system administrator."},
    {0x8009035A, "The domain controller certificate used for smartcard logon has expired. Please contact your system "
                 "administrator with the contents of your system event log."},
    {0x8009035B, "The domain controller certificate used for smartcard logon has been revoked. Please contact your "
                 "system administrator with the contents of your system event log."},
    {0x00090312, "The function completed successfully, but must be called again to complete the context"},
    {0x00090313, "The function completed successfully, but CompleteToken must be called"},
    {0x00090314, "The function completed successfully, but both CompleteToken and this function must be called to "
                 "complete the context"},
    {0x00090315, "The logon was completed, but no network authority was available. The logon was made using locally "
                 "known information"},
    {0x00090317, "The context has expired and can no longer be used."},
    {0x00090320, "The credentials supplied were not complete, and could not be verified. Additional information can be "
                 "returned from the context."},
    {0x00090321, "The context data must be renegotiated with the peer."},
    {0x00090323, "There is no LSA mode context associated with this context."},
};

} // namespace

const char* CSecurityException::Text() const { return TextOfCode(STATUS_TEXTS, m_dwStatus); }

void CSecurityException::GetMessage(char* pBuffer, size_t nSize) const
{
    Render(pBuffer, nSize, "%s in file \"%s\" at line %d; security error: 0x%08X, message: %s", ClassName(),
           SourceFile(), Line(), m_dwStatus, Text());
}

void ThrowSecurityException(const char* pszSourceFile, int iLine, uint32_t dwStatus)
{
    throw CSecurityException(pszSourceFile, iLine, dwStatus);
}

} // namespace Bex
