#pragma once

#include "Bex/CSimpleString.h"
#include "Tobix/MailByHand.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

/// The directories in which mail waits.
enum class EPlace { Queue, Outgoing };
inline constexpr EPlace PLACES[] = {EPlace::Queue, EPlace::Outgoing};
const char* PlaceName(EPlace place);             ///< "queue", "outgoing"
Bex::CSimpleString PlaceDirectory(EPlace place); ///< by the configuration that is loaded

/// Names the file of a mail that waits. A value; any thread once the configuration is loaded.
struct SMailName
{
    EPlace place;
    EMark mark = EMark::None;
    std::string strName; ///< without the mark: "x.eml"

    /// Nothing when a file of that name is no mail.
    static std::optional<SMailName> OfFile(EPlace place, std::string_view file);
    /// The file that somebody names, as "x.eml", "queue/x.eml" or "x.eml.held", among those with one of the marks.
    /// CControlError for what can be no name, for a mail that is not there, and for one that may be any of several.
    static SMailName Given(const std::string& strText, std::span<const EPlace> places, std::span<const EMark> marks);

    std::string Shown() const; ///< "queue/x.eml"
    bool CanBeTold() const;    ///< to the daemon, which would take another name for one that is not UTF-8
    Bex::CSimpleString Path() const;
};
