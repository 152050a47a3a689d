#pragma once

/// The fixed texts of an error report and of the session transcript in it: what tells failures writes them, and the
/// responder finds its way through a report by them. Lines come without their ends.
namespace ReportText {

inline constexpr char AUTHOR[] = "Mail Delivery Subsystem";
inline constexpr char SUBJECT[] = "Returned mail: see transcript for details";
inline constexpr char PERMANENT_ERRORS[] = "\t----- The following addresses had permanent fatal errors -----";
inline constexpr char CONTINUOUS_ERRORS[] = "\t----- The following addresses had continuous fatal errors -----";
inline constexpr char REASON[] = "\t(reason: "; ///< the error's text comes behind it, and then its end
inline constexpr char REASON_END[] = ")";
inline constexpr char TRANSCRIPT[] = "\t----- Transcript of session follows -----";
inline constexpr char TALKING_TO[] = ".... while talking to "; ///< a host's name comes behind it, and then its end
inline constexpr char TALKING_TO_END[] = ":";
inline constexpr char COMMAND[] = ">>> ";      ///< begins a line that was sent
inline constexpr char REPLY[] = "<<< ";        ///< begins a line that was received
inline constexpr char NULL_MX[] = "(NULL MX)"; ///< ends the line that tells of a domain without mail

} // namespace ReportText
