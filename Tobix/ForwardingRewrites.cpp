#include "Tobix/ForwardingRewrites.h"

#include "Common/Globals.h"
#include "Tobix/SRS.h"

namespace {

void RewriteEnvelopeSender(CMail& copy)
{
    const Bex::CSimpleString strDomain = Config().GetString(Keys::SRS_DOMAIN);
    const Bex::CSimpleString strChallenge = Config().GetString(Keys::SRS_CHALLENGE);
    if (!copy.EnvelopeSender().IsEmpty() && !strDomain.IsEmpty() && !strChallenge.IsEmpty())
        copy.SetEnvelopeSender(SRSRewrite(copy.EnvelopeSender(), strDomain, strChallenge));
}

void ReplaceAuthor(CMail& copy)
{
    const Bex::CSimpleString strAuthor = copy.FromAddress();
    if (copy.FindHeaderLine("Sender").IsEmpty())
        copy.ExtraHeaderLines().Append(Bex::CSimpleString::Formatted("Sender: %s", strAuthor.Text()));
    if (copy.ReplyTo().IsEmpty())
        copy.SetReplyTo(Bex::CSimpleString::Formatted("<%s>", strAuthor.Text()));
    copy.SetFromAddress(copy.EnvelopeSender());
    const Bex::CSimpleString strSignature = copy.FindHeaderLine("DKIM-Signature"); // the new From breaks it
    if (!strSignature.IsEmpty())
        copy.ExtraHeaderLines().RemoveEqual(strSignature);
}

} // namespace

Bex::CSimpleString AuthorDomain(const CMail& mail)
{
    return Config().GetFlag(Keys::DMARC_WORKAROUND) ? mail.FromAddress().AfterFirst('@') : Bex::CSimpleString();
}

void ApplyForwardingRewrites(CMail& copy, const Bex::CSimpleString& strAddressedRecipient,
                             const Bex::CSimpleString& strAuthorPolicy)
{
    copy.SetResentFor(strAddressedRecipient);
    RewriteEnvelopeSender(copy);
    if (strAuthorPolicy == "reject")
        ReplaceAuthor(copy);
}
