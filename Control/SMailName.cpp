#include "Control/SMailName.h"

#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Control/CControlError.h"
#include "Platform/FileSystem.h"

#include <vector>

namespace {

bool Exists(const SMailName& name)
{
    const Bex::CSimpleString strPath = name.Path();
    switch (Platform::KindOf(strPath.Text(), false)) {
    case Platform::EPathKind::File:
        return true;
    case Platform::EPathKind::Failed:
        throw CControlError(EExit::Wrong, std::string(strPath.Text()) + ": " + ErrorText(Platform::LastError()));
    default:
        return false;
    }
}

/// The text in front of the first slash, when it is a directory's name, goes.
std::optional<EPlace> TakePlace(std::string_view& text)
{
    for (const EPlace place : PLACES) {
        const std::string strPrefix = std::string(PlaceName(place)) + "/";
        if (!text.starts_with(strPrefix))
            continue;
        text.remove_prefix(strPrefix.size());
        return place;
    }
    return std::nullopt;
}

/// With both directories, of the text's own mark when it has one.
std::vector<SMailName> Candidates(const std::string& strText, std::span<const EPlace> places,
                                  std::span<const EMark> marks)
{
    std::string_view file = strText;
    const std::optional<EPlace> onlyPlace = TakePlace(file);
    const std::optional<SMailName> named = SMailName::OfFile(EPlace::Queue, file);
    if (!named)
        throw CControlError(EExit::Misused, strText + ": that is no mail's name; a mail is called \"NAME.eml\", "
                                                      "\"queue/NAME.eml\" or \"outgoing/NAME.eml\"");
    std::vector<SMailName> candidates;
    for (const EPlace place : places) {
        for (const EMark mark : marks) {
            if ((!onlyPlace || *onlyPlace == place) && (named->mark == EMark::None || named->mark == mark))
                candidates.push_back({place, mark, named->strName});
        }
    }
    return candidates;
}

} // namespace

const char* PlaceName(EPlace place) { return place == EPlace::Queue ? "queue" : "outgoing"; }

Bex::CSimpleString PlaceDirectory(EPlace place)
{
    return Config().GetPath(place == EPlace::Queue ? Keys::QUEUE_DIR : Keys::OUTGOING_DIR);
}

std::optional<SMailName> SMailName::OfFile(EPlace place, std::string_view file)
{
    const EMark mark = TakeMark(file);
    return IsPlainMailName(file) ? std::optional(SMailName{place, mark, std::string(file)}) : std::nullopt;
}

/// Of one place the first mark counts: an unmarked mail before one that is set aside.
SMailName SMailName::Given(const std::string& strText, std::span<const EPlace> places, std::span<const EMark> marks)
{
    std::optional<SMailName> found;
    for (SMailName& candidate : Candidates(strText, places, marks)) {
        if ((found && found->place == candidate.place) || !Exists(candidate))
            continue;
        if (found)
            throw CControlError(EExit::Wrong, strText + " is in both directories: say " + found->Shown() + " or " +
                                                  candidate.Shown());
        found = std::move(candidate);
    }
    if (!found)
        throw CControlError(EExit::Wrong, strText + ": no such mail is there");
    return *found;
}

std::string SMailName::Shown() const
{
    return std::string(PlaceName(place)) + "/" + strName + std::string(SuffixOf(mark));
}

bool SMailName::CanBeTold() const { return Bex::IsUtf8(strName); }

Bex::CSimpleString SMailName::Path() const
{
    return Bex::PathBelow(PlaceDirectory(place), strName + std::string(SuffixOf(mark)));
}
