#include "Tobix/MailByHand.h"

#include "Bex/CFileException.h"
#include "Bex/TextFunctions.h"
#include "Common/CHeldMailFile.h"
#include "Platform/CFlushGroup.h"
#include "Platform/Errors.h"
#include "SMTPc/ErrorReport.h"

namespace {

constexpr std::string_view MAIL_SUFFIX = ".eml";

void RemoveReportOf(const Bex::CSimpleString& strPath)
{
    try {
        Bex::CFile::Remove(ErrorReportPath(strPath));
    } catch (const Bex::CFileException&) { // there is none
    }
}

bool Act(CHeldMailFile& file, const Bex::CSimpleString& strPath, EByHand what)
{
    if (what == EByHand::Hold)
        return file.RenameIfStill(Bex::CSimpleString(strPath) += HELD_SUFFIX);
    return file.RemoveIfStill();
}

std::string Reason(const Bex::CFileException& exception)
{
    if (exception.LibError() == Platform::LIB_NO_ENTRY)
        return "unknown";
    if (exception.LibError() == Platform::LIB_EXISTS)
        return "another file has the name";
    return Platform::IsBusy(exception.Error()) ? "in delivery" : "error " + std::to_string(exception.LibError());
}

} // namespace

bool IsPlainMailName(std::string_view name)
{
    constexpr std::string_view UNFIT("/\0", 2);
    return name.size() > MAIL_SUFFIX.size() &&
           Bex::EqualNoCase(name.substr(name.size() - MAIL_SUFFIX.size()), MAIL_SUFFIX) &&
           name.find_first_of(UNFIT) == std::string_view::npos;
}

std::string ActByHand(std::string_view directory, std::string_view name, EByHand what)
{
    const Bex::CSimpleString strPath = Bex::PathBelow(directory, name);
    try {
        CHeldMailFile file;
        file.Take(strPath);
        if (!Act(file, strPath, what))
            return "in delivery"; // or rather another mail by now
    } catch (const Bex::CFileException& exception) {
        return Reason(exception);
    }
    if (what == EByHand::Remove)
        RemoveReportOf(strPath);
    Platform::CFlushGroup flush;
    flush.MarkWritten(std::string(directory).c_str());
    return flush.Flush() ? "" : "done, but the directory could not be flushed";
}
