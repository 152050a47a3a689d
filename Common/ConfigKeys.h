#pragma once

#include "Bex/CConfigFile.h"

/// Every setting there is. The tables tell kind, default and meaning of each key; docs/configuration.md prints them
/// line by line. Settings are read by the constants below a table only. A new setting is a line here, its constant,
/// and its line in the manual.

/// The configuration, tobix.cfg.
namespace Keys {

using enum Bex::EKeyKind;

inline constexpr Bex::SConfigKey TABLE[] = {
    {"QueueDir", Path, "/mail/queue", "mail to deliver; must exist"},
    {"Queue.MinFree", Number, "0",
     "percent that has to be free on the volumes of `SpoolDir` and `OutgoingDir`; with less, mail waits in the queue; "
     "0: any"},
    {"SpoolDir", Path, "/mail/spool", "the mailboxes, a directory per user; must exist"},
    {"LockDir", Path, "",
     "directory of the locks of accounts, for hosts that store into one `SpoolDir`: on the same cluster file system; "
     "empty: locks of this host (docs/scaling.md)"},
    {"ErrorDir", Path, "/mail/error", "mail that could not be delivered; must exist"},
    {"OutgoingDir", Path, "/mail/outgoing", "mail for other hosts, one file per recipient; must exist"},
    {"FilterDir", Path, "/mail/filtered", "mail that a content filter caught"},
    {"InterceptDir", Path, "/mail/intercepted", "copies of intercepted mail"},
    {"InterceptAddressesFile", Path, "intercept_addresses", "list of the addresses whose mail is copied"},
    {"FiltersFile", Path, "filters", "list of the content filters"},
    {"MaskFile", Path, "", "table of sender addresses to replace when mail leaves"},
    {"LogHost", Text, "127.0.0.1", "syslog receiver of the main log"},
    {"LogPort", Number, "514", "its UDP port"},
    {"LogFacility", Text, "mail", "facility of the main log"},
    {"TrafficLogHost", Text, Bex::SameAs("LogHost"), "syslog receiver of the traffic log"},
    {"TrafficLogPort", Number, Bex::SameAs("LogPort"), "its UDP port"},
    {"TrafficLogFacility", Text, "local2", "facility of the traffic log"},
    {"TrafficLogging", Flag, "1", "one traffic line per delivered mail"},
    {"DebugLogging", Number, "0", "1: SMTP commands and replies in the log, 2: every line as it comes"},
    {"AutoTransport", Flag, "1",
     "deliver to other hosts; off: mail stays in `OutgoingDir`, and its `newmail.cmd` is run"},
    {"AutoTransport.Threads", Number, "2", "sessions at a time"},
    {"AutoTransport.ThreadsPerDomain", Number, "0", "sessions at a time with one recipient domain; 0: any number"},
    {"Connection.Mails", Number, "1",
     "mails that follow each other over one connection, to one recipient domain or smart host; 1: each has its own"},
    {"Connection.Pipelining", Flag, "0",
     "send commands without waiting for each reply, where servers offer that; also those of the next mail"},
    {"Connection.Wait", Number, "0",
     "seconds, up to 300, that a connection is kept open for the next mail of `Connection.Mails` while there is none"},
    {"AutoTransRetry", Number, "60", "minutes between tries"},
    {"AutoTransRetryMin", Number, Bex::SameAs("AutoTransRetry"), "the same, without new mail waiting"},
    {"AutoTransRetryMax", Number, Bex::SameAs("AutoTransRetry"), "the same, with new mail waiting"},
    {"AutoTransTime", Number, "120", "minutes after which a mail is given up"},
    {"TimeOut", Number, "90", "seconds that connecting and an SMTP command may take, 60 to 1200"},
    {"UseTLS", Flag, "1", "STARTTLS where it is offered"},
    {"CipherProtocols", Text, "", "protocols allowed, such as `TLS1_2,TLS1_3` (no blanks); empty: the system's choice"},
    {"FQDN", Text, "", "name announced in EHLO; empty: the name of the local address"},
    {"Interface", Text, "", "local address of outgoing connections"},
    {"Rcpt.To.DomainPart.ToLower", Flag, "0", "lower-case the domain of recipients"},
    {"HourlyCleanup", Flag, "0",
     "with `AutoTransport` off: run `newmail.cmd` of `OutgoingDir` once an hour, and nothing else in the main loop"},
    {"AllowConfigRestart", Flag, "1", "allow the restart control"},
    {"Inject.TrustedUsers", Text, "",
     "users beside root and the owner of `QueueDir` whose `tobix-inject -f` names the sender, with commas between"},
    {"Control.Socket", Path, "",
     "socket by which `tobixctl` asks the daemon, such as `/run/tobix/control`; empty: none"},
    {"Scripts.Execution.Parallel", Flag, Bex::SameAs("AsyncScripts"), "do not wait for the programs that are started"},
    {"AsyncScripts", Flag, "1", "the same; counts while `Scripts.Execution.Parallel` is missing"},
    {"FilterContent", Flag, "1", "apply the content filters"},
    {"Header.Received.Create", Flag, "1", "add a Received field to each copy"},
    {"Header.Received.Recipient", Flag, "1", "name the recipient in it"},
    {"Header.Received.Max", Number, "0",
     "queued mail with more Received fields fails, as it goes round; 0: any number"},
    {"Header.Forward.DMARCWorkaround", Flag, "1", "replace From in forwarded mail whose domain demands rejection"},
    {"SRS.Domain", Text, "", "domain of rewritten senders; empty: off"},
    {"SRS.Challenge", Text, "", "secret of rewritten senders, five characters or more; empty: off"},
    {Bex::CConfigFile::LOCAL_PART_DELIMITER, Text, Bex::CConfigFile::DEFAULT_DELIMITER,
     "what begins a sub-address: `ann+list` is `ann`"},
    {"Postmaster", Text, "", "whom bounces come from, and who gets a copy"},
    {"Postmaster.From", Text, Bex::SameAs("Postmaster"), "whom bounces of refused mail come from"},
    {"Postmaster.To", Text, Bex::SameAs("Postmaster"), "who gets a copy of bounces; empty: nobody"},
    {"Bounce.Disable", Flag, "0", "delete mail that is given up, without a notification"},
    {"Bounce.Attachment", Flag, Bex::SameAs("BounceAttachment"), "return the mail with the notification"},
    {"BounceAttachment", Flag, "0", "the same; counts while `Bounce.Attachment` is missing"},
    {"Bounce.Bulk", Flag, "1", "notify senders of bulk mail, too"},
    {"Quota", Number, "0", "default quota recorded for accounts"},
};

inline constexpr Bex::CPathKey QUEUE_DIR(TABLE, "QueueDir");
inline constexpr Bex::CNumberKey QUEUE_MIN_FREE(TABLE, "Queue.MinFree");
inline constexpr Bex::CPathKey SPOOL_DIR(TABLE, "SpoolDir");
inline constexpr Bex::CPathKey LOCK_DIR(TABLE, "LockDir");
inline constexpr Bex::CPathKey ERROR_DIR(TABLE, "ErrorDir");
inline constexpr Bex::CPathKey OUTGOING_DIR(TABLE, "OutgoingDir");
inline constexpr Bex::CPathKey FILTER_DIR(TABLE, "FilterDir");
inline constexpr Bex::CPathKey INTERCEPT_DIR(TABLE, "InterceptDir");
inline constexpr Bex::CPathKey INTERCEPT_ADDRESSES_FILE(TABLE, "InterceptAddressesFile");
inline constexpr Bex::CPathKey FILTERS_FILE(TABLE, "FiltersFile");
inline constexpr Bex::CPathKey MASK_FILE(TABLE, "MaskFile");
inline constexpr Bex::CTextKey LOG_HOST(TABLE, "LogHost");
inline constexpr Bex::CNumberKey LOG_PORT(TABLE, "LogPort");
inline constexpr Bex::CTextKey LOG_FACILITY(TABLE, "LogFacility");
inline constexpr Bex::CTextKey TRAFFIC_LOG_HOST(TABLE, "TrafficLogHost");
inline constexpr Bex::CNumberKey TRAFFIC_LOG_PORT(TABLE, "TrafficLogPort");
inline constexpr Bex::CTextKey TRAFFIC_LOG_FACILITY(TABLE, "TrafficLogFacility");
inline constexpr Bex::CFlagKey TRAFFIC_LOGGING(TABLE, "TrafficLogging");
inline constexpr Bex::CNumberKey DEBUG_LOGGING(TABLE, "DebugLogging");
inline constexpr Bex::CFlagKey AUTO_TRANSPORT(TABLE, "AutoTransport");
inline constexpr Bex::CNumberKey AUTO_TRANSPORT_THREADS(TABLE, "AutoTransport.Threads");
inline constexpr Bex::CNumberKey AUTO_TRANSPORT_THREADS_PER_DOMAIN(TABLE, "AutoTransport.ThreadsPerDomain");
inline constexpr Bex::CNumberKey CONNECTION_MAILS(TABLE, "Connection.Mails");
inline constexpr Bex::CFlagKey CONNECTION_PIPELINING(TABLE, "Connection.Pipelining");
inline constexpr Bex::CNumberKey CONNECTION_WAIT(TABLE, "Connection.Wait");
inline constexpr Bex::CNumberKey AUTO_TRANS_RETRY_MIN(TABLE, "AutoTransRetryMin");
inline constexpr Bex::CNumberKey AUTO_TRANS_RETRY_MAX(TABLE, "AutoTransRetryMax");
inline constexpr Bex::CNumberKey AUTO_TRANS_TIME(TABLE, "AutoTransTime");
inline constexpr Bex::CNumberKey TIME_OUT(TABLE, "TimeOut");
inline constexpr Bex::CFlagKey USE_TLS(TABLE, "UseTLS");
inline constexpr Bex::CTextKey CIPHER_PROTOCOLS(TABLE, "CipherProtocols");
inline constexpr Bex::CTextKey FQDN(TABLE, "FQDN");
inline constexpr Bex::CTextKey INTERFACE(TABLE, "Interface");
inline constexpr Bex::CFlagKey RCPT_TO_DOMAIN_TO_LOWER(TABLE, "Rcpt.To.DomainPart.ToLower");
inline constexpr Bex::CFlagKey HOURLY_CLEANUP(TABLE, "HourlyCleanup");
inline constexpr Bex::CFlagKey ALLOW_CONFIG_RESTART(TABLE, "AllowConfigRestart");
inline constexpr Bex::CTextKey INJECT_TRUSTED_USERS(TABLE, "Inject.TrustedUsers");
inline constexpr Bex::CPathKey CONTROL_SOCKET(TABLE, "Control.Socket");
inline constexpr Bex::CFlagKey SCRIPTS_IN_PARALLEL(TABLE, "Scripts.Execution.Parallel");
inline constexpr Bex::CFlagKey FILTER_CONTENT(TABLE, "FilterContent");
inline constexpr Bex::CFlagKey HEADER_RECEIVED_CREATE(TABLE, "Header.Received.Create");
inline constexpr Bex::CFlagKey HEADER_RECEIVED_RECIPIENT(TABLE, "Header.Received.Recipient");
inline constexpr Bex::CNumberKey HEADER_RECEIVED_MAX(TABLE, "Header.Received.Max");
inline constexpr Bex::CFlagKey DMARC_WORKAROUND(TABLE, "Header.Forward.DMARCWorkaround");
inline constexpr Bex::CTextKey SRS_DOMAIN(TABLE, "SRS.Domain");
inline constexpr Bex::CTextKey SRS_CHALLENGE(TABLE, "SRS.Challenge");
inline constexpr Bex::CTextKey POSTMASTER(TABLE, "Postmaster");
inline constexpr Bex::CTextKey POSTMASTER_FROM(TABLE, "Postmaster.From");
inline constexpr Bex::CTextKey POSTMASTER_TO(TABLE, "Postmaster.To");
inline constexpr Bex::CFlagKey BOUNCE_DISABLE(TABLE, "Bounce.Disable");
inline constexpr Bex::CFlagKey BOUNCE_ATTACHMENT(TABLE, "Bounce.Attachment");
inline constexpr Bex::CFlagKey BOUNCE_BULK(TABLE, "Bounce.Bulk");
inline constexpr Bex::CNumberKey QUOTA(TABLE, "Quota");

inline constexpr Bex::CPathKey REQUIRED_DIRECTORIES[] = {QUEUE_DIR, SPOOL_DIR, ERROR_DIR, OUTGOING_DIR};

} // namespace Keys

/// The file "config" in a user's mailbox directory.
namespace AccountKeys {

using enum Bex::EKeyKind;

inline constexpr Bex::SConfigKey TABLE[] = {
    {Bex::CConfigFile::NEXT_UID, Number, "1",
     "number of the next mail, or with `LockDir` one that is not reached yet; written by the daemon"},
    {"SaveEnvelope", Flag, "0", "begin the file with the envelope's addresses instead of Return-Path"},
    {"Maildir", Flag, "0", "store mail in `Maildir/new`, for programs that read it there"},
    {"RunAntiSpam", Flag, "0", "run `spamscan.exe \"<file>\" -tag -s`"},
    {"RunReply", Flag, "0", "run `responder.exe \"<file>\" -t \"<template>\" -o \"<queue file>\" -k -s`"},
    {"RunReplyTemplate", Text, "", "file of the reply's template; empty: no reply"},
    {"Quota", Number, "0", "recorded only; missing: `Quota` of `tobix.cfg`"},
    {"MaxSize", Number, "0", "recorded only"},
};

inline constexpr Bex::CNumberKey NEXT_UID(TABLE, Bex::CConfigFile::NEXT_UID);
inline constexpr Bex::CFlagKey SAVE_ENVELOPE(TABLE, "SaveEnvelope");
inline constexpr Bex::CFlagKey MAILDIR(TABLE, "Maildir");
inline constexpr Bex::CFlagKey RUN_ANTI_SPAM(TABLE, "RunAntiSpam");
inline constexpr Bex::CFlagKey RUN_REPLY(TABLE, "RunReply");
inline constexpr Bex::CTextKey RUN_REPLY_TEMPLATE(TABLE, "RunReplyTemplate");
inline constexpr Bex::CNumberKey QUOTA(TABLE, "Quota");
inline constexpr Bex::CNumberKey MAX_SIZE(TABLE, "MaxSize");

} // namespace AccountKeys
