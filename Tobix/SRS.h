#pragma once

#include "Bex/CSimpleString.h"
#include "Bex/CTime.h"

/// The Sender Rewriting Scheme: puts a sender whose mail is sent on into an address of this system's own domain, so
/// that the receiver finds this host entitled to send for it and a bounce finds its way back. Any thread.
///
/// An SRS0 address of another forwarder becomes an SRS1 address, an SRS1 address only changes its domain; what they
/// carry is not verified. The first five bytes of the challenge are the key of the hash; what a shorter one lacks
/// counts as zero bytes. An empty address stays empty.
Bex::CSimpleString SRSRewrite(const Bex::CSimpleString& strAddress, const Bex::CSimpleString& strSRSDomain,
                              const Bex::CSimpleString& strChallenge, Bex::CTime now = Bex::CTime::Now());
