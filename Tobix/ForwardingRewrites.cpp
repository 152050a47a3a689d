#include "Tobix/ForwardingRewrites.h"

void ApplyForwardingRewrites(CMail& copy, const Bex::CSimpleString& strAddressedRecipient)
{
    copy.SetResentFor(strAddressedRecipient);
}
