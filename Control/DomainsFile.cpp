#include "Control/DomainsFile.h"

#include "Bex/CFileException.h"
#include "Bex/CMutex.h"
#include "Bex/CReplacingFile.h"
#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Control/CControlError.h"
#include "Platform/CFlushGroup.h"
#include "Tobix/TableFiles.h"

#include <filesystem>

namespace {

constexpr unsigned LONGEST_WAIT = 10'000; // milliseconds
constexpr uint32_t PIECE = 65'536;

std::string ContentOf(const Bex::CSimpleString& strFile)
{
    Bex::CFile file;
    file.Open(strFile,
              Bex::CFile::typeBinary | Bex::CFile::modeRead | Bex::CFile::shareDenyWrite | Bex::CFile::noDevices);
    std::string strContent;
    for (;;) {
        const size_t nBefore = strContent.size();
        if (nBefore > Bex::MOST_TABLE_BYTES)
            throw CControlError(EExit::Wrong, std::string(strFile.Text()) + " is too large");
        strContent.resize(nBefore + PIECE);
        const uint32_t nRead = file.Read(strContent.data() + nBefore, PIECE);
        strContent.resize(nBefore + nRead);
        if (nRead == 0)
            return strContent;
    }
}

void Replace(const Bex::CSimpleString& strFile, const std::string& strContent)
{
    Platform::CFlushGroup volumes;
    const std::string strDirectory = std::filesystem::path(strFile.Text()).parent_path();
    volumes.Add(strDirectory.c_str());
    Bex::CReplacingFile file(strFile);
    file.Write(strContent.data(), static_cast<uint32_t>(strContent.size()));
    file.MakeDurable();
    file.Commit();
    volumes.MarkWritten(strDirectory.c_str());
    if (!volumes.Flush())
        throw CControlError(EExit::Wrong, "cannot flush " + strDirectory + ": " + ErrorText(Platform::LastError()));
}

} // namespace

void AddLocalDomain(std::string_view domain)
{
    std::error_code error;
    const std::string strReal = std::filesystem::canonical(TableFiles::Domains(ConfigDirectory()).Text(), error);
    const Bex::CSimpleString strFile = error ? TableFiles::Domains(ConfigDirectory()) : Bex::CSimpleString(strReal);
    try {
        Bex::CMutex mutex(Bex::AccountLockName(strFile));
        if (!mutex.Lock(LONGEST_WAIT))
            throw CControlError(EExit::Refused, std::string("another program changes ") + strFile.Text());
        std::string strContent = ContentOf(strFile);
        if (!domain.empty() && !strContent.empty() && !strContent.ends_with('\n'))
            strContent += '\n';
        if (!domain.empty())
            strContent.append(domain).append("\n");
        Replace(strFile, strContent);
    } catch (const Bex::CFileException& exception) {
        throw CControlError(EExit::Wrong,
                            std::string("cannot change ") + strFile.Text() + ": " + ErrorText(exception.Error()));
    }
}
