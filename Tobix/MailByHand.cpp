#include "Tobix/MailByHand.h"

#include "Bex/CFileException.h"
#include "Bex/TextFunctions.h"
#include "Common/CHeldMailFile.h"
#include "Common/ErrorText.h"
#include "Platform/CFlushGroup.h"
#include "Platform/FileSystem.h"
#include "SMTPc/ErrorReport.h"
#include "Tobix/CDeletionList.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr std::string_view EXTENSION = ".eml";
constexpr size_t LONGEST_NAME = 255;
constexpr struct
{
    EMark mark;
    std::string_view suffix;
} MARKS[] = {{EMark::Held, ".held"}, {EMark::Failed, CDeletionList::FAILED_SUFFIX}};

Bex::CSimpleString PathOf(std::string_view directory, std::string_view name, EMark mark)
{
    return Bex::PathBelow(directory, name) += SuffixOf(mark);
}

std::string Reason(Platform::SError error)
{
    if (error.iLibError == Platform::LIB_NO_ENTRY)
        return UNKNOWN_MAIL;
    if (error.iLibError == Platform::LIB_EXISTS)
        return NAME_TAKEN;
    return Platform::IsBusy(error) ? IN_DELIVERY : ErrorText(error);
}

/// Does it to the file, which answers false when another one has its name by now.
template <class TDo>
std::string Act(std::string_view directory, const Bex::CSimpleString& strPath, TDo Do)
{
    try {
        CHeldMailFile file;
        file.Take(strPath);
        if (!Do(file))
            return IN_DELIVERY;
    } catch (const Bex::CFileException& exception) {
        return Reason(exception.Error());
    }
    Platform::CFlushGroup flush;
    flush.MarkWritten(std::string(directory).c_str());
    return flush.Flush() ? "" : "done, but the directory could not be flushed";
}

} // namespace

std::string_view SuffixOf(EMark mark)
{
    const auto* const pFound = std::ranges::find(MARKS, mark, [](const auto& known) { return known.mark; });
    return pFound == std::end(MARKS) ? std::string_view() : pFound->suffix;
}

EMark TakeMark(std::string_view& file)
{
    for (const auto& known : MARKS) {
        if (!file.ends_with(known.suffix))
            continue;
        file.remove_suffix(known.suffix.size());
        return known.mark;
    }
    return EMark::None;
}

bool IsPlainMailName(std::string_view name)
{
    constexpr std::string_view UNFIT("/\0", 2);
    return name.size() >= EXTENSION.size() && name.size() <= LONGEST_NAME &&
           Bex::EqualNoCase(name.substr(name.size() - EXTENSION.size()), EXTENSION) &&
           name.find_first_of(UNFIT) == std::string_view::npos;
}

std::string MarkByHand(std::string_view directory, std::string_view name, EMark old, EMark mark)
{
    return Act(directory, PathOf(directory, name, old),
               [&](CHeldMailFile& file) { return file.RenameIfStill(PathOf(directory, name, mark)); });
}

/// The report of a marked file may by now be another mail's, which has the name without the mark.
std::string RemoveByHand(std::string_view directory, std::string_view name, EMark mark)
{
    return Act(directory, PathOf(directory, name, mark), [&](CHeldMailFile& file) {
        if (!file.RemoveIfStill())
            return false;
        const Bex::CSimpleString strUnmarked = PathOf(directory, name, EMark::None);
        if (Platform::KindOf(strUnmarked.Text(), false) == Platform::EPathKind::Missing)
            Platform::RemoveFile(ErrorReportPath(strUnmarked).Text()); // most have none
        return true;
    });
}
