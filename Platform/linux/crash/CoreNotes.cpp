#include "Platform/linux/crash/CoreNotes.h"

#include <algorithm>
#include <cstring>
#include <elf.h>
#include <fstream>
#include <iterator>
#include <sys/procfs.h>
#include <unistd.h>

namespace Platform {

namespace {

std::string ReadProcessFile(pid_t iProcess, const char* pszName)
{
    std::ifstream file("/proc/" + std::to_string(iProcess) + "/" + pszName, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

template <class T>
void Append(std::string& strTo, const T& value)
{
    strTo.append(reinterpret_cast<const char*>(&value), sizeof(value));
}

void AppendNote(std::string& strNotes, uint32_t dwType, std::string_view data)
{
    constexpr size_t ALIGNMENT = 4;
    constexpr char OWNER[] = "CORE\0\0\0"; // padded
    Elf64_Nhdr head{};
    head.n_namesz = 5;
    head.n_descsz = static_cast<uint32_t>(data.size());
    head.n_type = dwType;
    Append(strNotes, head);
    strNotes.append(OWNER, sizeof(OWNER)).append(data);
    strNotes.resize((strNotes.size() + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT);
}

template <class T>
void AppendNoteOf(std::string& strNotes, uint32_t dwType, const T& value)
{
    AppendNote(strNotes, dwType, {reinterpret_cast<const char*>(&value), sizeof(value)});
}

elf_prstatus ThreadStatus(const SCrashRecord& record, pid_t iThread, const elf_gregset_t& general)
{
    elf_prstatus status{};
    status.pr_info.si_signo = record.info.si_signo;
    status.pr_info.si_code = record.info.si_code;
    status.pr_cursig = static_cast<short>(record.info.si_signo);
    status.pr_pid = iThread;
    status.pr_ppid = getpid();
    std::memcpy(&status.pr_reg, &general, sizeof(general));
    status.pr_fpvalid = 1;
    return status;
}

elf_prpsinfo ProcessInfo(const SCrashRecord& record)
{
    elf_prpsinfo info{};
    info.pr_sname = 'R';
    info.pr_pid = record.iProcess;
    info.pr_uid = getuid();
    info.pr_gid = getgid();
    const std::string_view path(record.szExecutable);
    const std::string_view name = path.substr(path.rfind('/') + 1);
    name.copy(info.pr_fname, sizeof(info.pr_fname) - 1);
    std::string strArguments = ReadProcessFile(record.iProcess, "cmdline");
    std::replace(strArguments.begin(), strArguments.end(), '\0', ' ');
    strArguments.copy(info.pr_psargs, sizeof(info.pr_psargs) - 1);
    return info;
}

/// Count and page size, the stretches with their offsets in pages, then the names.
std::string FileList(const std::vector<SMapping>& mappings)
{
    const auto ui64Page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    uint64_t ui64Count = 0;
    std::string strStretches;
    std::string strNames;
    for (const SMapping& mapping : mappings) {
        if (!mapping.IsOfFile())
            continue;
        ++ui64Count;
        Append(strStretches, mapping.ui64Start);
        Append(strStretches, mapping.ui64End);
        Append(strStretches, mapping.ui64Offset / ui64Page);
        strNames.append(mapping.strName).push_back('\0');
    }
    std::string strList;
    Append(strList, ui64Count);
    Append(strList, ui64Page);
    return strList + strStretches + strNames;
}

} // namespace

std::string BuildCoreNotes(const SCrashRecord& record, const std::vector<SStoppedThread>& threads,
                           const std::vector<SMapping>& mappings)
{
    std::string strNotes;
    AppendNoteOf(strNotes, NT_PRSTATUS, ThreadStatus(record, record.iThread, record.registers.general));
    AppendNoteOf(strNotes, NT_PRPSINFO, ProcessInfo(record));
    AppendNoteOf(strNotes, NT_SIGINFO, record.info);
    AppendNote(strNotes, NT_AUXV, ReadProcessFile(record.iProcess, "auxv"));
    AppendNote(strNotes, NT_FILE, FileList(mappings));
    AppendNoteOf(strNotes, NT_FPREGSET, record.registers.floating);
    for (const SStoppedThread& thread : threads) {
        AppendNoteOf(strNotes, NT_PRSTATUS, ThreadStatus(record, thread.iThread, thread.general));
        AppendNoteOf(strNotes, NT_FPREGSET, thread.floating);
    }
    return strNotes;
}

} // namespace Platform
