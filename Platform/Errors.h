#pragma once

#include <cstdint>

/// How failures of the operating system are told to the rest of the system: as a pair of numbers, the C library's
/// and the system's. Linux error numbers are translated here and nowhere else.
namespace Platform {

/// C library error numbers as the system documents them. They are not Linux's own: 36 means "would deadlock" (busy).
enum ELibError : int {
    LIB_NONE = 0,
    LIB_NO_ENTRY = 2,
    LIB_NO_PROCESS = 3,
    LIB_INTERRUPTED = 4,
    LIB_IO = 5,
    LIB_OTHER = 5,
    LIB_ARGUMENTS_TOO_LONG = 7,
    LIB_BAD_EXE = 8,
    LIB_BAD_HANDLE = 9,
    LIB_NO_CHILD = 10,
    LIB_NO_MEMORY = 12,
    LIB_ACCESS = 13,
    LIB_EXISTS = 17,
    LIB_CROSS_DEVICE = 18,
    LIB_NO_DEVICE = 19,
    LIB_NOT_DIRECTORY = 20,
    LIB_IS_DIRECTORY = 21,
    LIB_INVALID = 22,
    LIB_TOO_MANY_OPEN = 24,
    LIB_TOO_BIG = 27,
    LIB_NO_SPACE = 28,
    LIB_BAD_SEEK = 29,
    LIB_READ_ONLY = 30,
    LIB_TOO_MANY_LINKS = 31,
    LIB_BROKEN_PIPE = 32,
    LIB_DEADLOCK = 36,
    LIB_NAME_TOO_LONG = 38,
    LIB_NO_LOCKS = 39,
    LIB_NOT_SUPPORTED = 40,
    LIB_NOT_EMPTY = 41,
    LIB_BAD_SEQUENCE = 42,
    LIB_LOOP = 114,
    LIB_TIMED_OUT = 138,
};

/// System error codes as the system documents them.
enum ESysError : uint32_t {
    SYS_NONE = 0,
    SYS_FILE_NOT_FOUND = 2,
    SYS_PATH_NOT_FOUND = 3,
    SYS_TOO_MANY_OPEN = 4,
    SYS_ACCESS_DENIED = 5,
    SYS_INVALID_HANDLE = 6,
    SYS_NO_MEMORY = 8,
    SYS_NOT_SAME_DEVICE = 17,
    SYS_WRITE_PROTECT = 19,
    SYS_IO = 29,
    SYS_GENERAL_FAILURE = 31,
    SYS_SHARING_VIOLATION = 32,
    SYS_NOT_SUPPORTED = 50,
    SYS_FILE_EXISTS = 80,
    SYS_INVALID_PARAMETER = 87,
    SYS_BROKEN_PIPE = 109,
    SYS_DISK_FULL = 112,
    SYS_INVALID_NAME = 123,
    SYS_DIR_NOT_EMPTY = 145,
    SYS_BAD_ARGUMENTS = 160,
    SYS_ALREADY_EXISTS = 183,
    SYS_BAD_EXE = 193,
    SYS_FILENAME_TOO_LONG = 206,
    SYS_FILE_TOO_LARGE = 223,
    SYS_TIMEOUT = 258,
    SYS_DIRECTORY = 267,
    SYS_OPERATION_ABORTED = 995,
    SYS_NO_SUCH_SERVICE = 1060,
    SYS_SERVICE_EXISTS = 1073,
    SYS_TOO_MANY_LINKS = 1142,
    SYS_CONNECTION_REFUSED = 1225,
    SYS_NO_RESOURCES = 1450,
    SYS_CANT_RESOLVE_FILENAME = 1921,
};

struct SError
{
    int iLibError = 0;
    uint32_t dwSysError = 0;
};

/// The failure of the last Platform operation that failed on this thread. Operations that succeed leave it alone.
SError LastError();
void SetLastError(SError error);

/// Too few descriptors, processes, locks or too little memory: nobody is told when that passes.
bool IsShortage(SError error);
/// What failed may well succeed later: somebody else has it in use, a lock was not obtained, or a shortage. A missing
/// permission is none of these.
bool IsBusy(SError error);

/// The pair for a Linux errno. For use below Platform/ and where the C++ library sets errno.
SError ErrorFromErrno(int iErrno);
/// The same for making threads and processes, where EAGAIN tells of a limit reached and not of a busy file.
SError CreationErrorFromErrno(int iErrno);

} // namespace Platform
