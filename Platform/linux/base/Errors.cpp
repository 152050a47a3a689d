#include "Platform/Errors.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace Platform {

namespace {

struct SErrnoCase
{
    int iErrno;
    SError error;
};

/// What the calls on files, processes, threads and sockets can answer. 13 is shared by "busy" and "denied", as
/// documented: the system's number tells the two apart.
constexpr SErrnoCase ERRNO_CASES[] = {
    {EPERM, {LIB_ACCESS, SYS_ACCESS_DENIED}},
    {ENOENT, {LIB_NO_ENTRY, SYS_FILE_NOT_FOUND}},
    {ESRCH, {LIB_NO_PROCESS, SYS_INVALID_PARAMETER}},
    {EINTR, {LIB_INTERRUPTED, SYS_OPERATION_ABORTED}},
    {EIO, {LIB_IO, SYS_IO}},
    {ENXIO, {LIB_NO_DEVICE, SYS_FILE_NOT_FOUND}},
    {E2BIG, {LIB_ARGUMENTS_TOO_LONG, SYS_FILENAME_TOO_LONG}},
    {ENOEXEC, {LIB_BAD_EXE, SYS_BAD_EXE}},
    {EBADF, {LIB_BAD_HANDLE, SYS_INVALID_HANDLE}},
    {ECHILD, {LIB_NO_CHILD, SYS_INVALID_HANDLE}},
    {EAGAIN, {LIB_ACCESS, SYS_SHARING_VIOLATION}},
    {ENOMEM, {LIB_NO_MEMORY, SYS_NO_MEMORY}},
    {EACCES, {LIB_ACCESS, SYS_ACCESS_DENIED}},
    {EFAULT, {LIB_INVALID, SYS_INVALID_PARAMETER}},
    {EBUSY, {LIB_ACCESS, SYS_SHARING_VIOLATION}},
    {EEXIST, {LIB_EXISTS, SYS_ALREADY_EXISTS}},
    {EXDEV, {LIB_CROSS_DEVICE, SYS_NOT_SAME_DEVICE}},
    {ENODEV, {LIB_NO_DEVICE, SYS_FILE_NOT_FOUND}},
    {ENOTDIR, {LIB_NOT_DIRECTORY, SYS_PATH_NOT_FOUND}},
    {EISDIR, {LIB_IS_DIRECTORY, SYS_ACCESS_DENIED}},
    {EINVAL, {LIB_INVALID, SYS_INVALID_PARAMETER}},
    {ENFILE, {LIB_TOO_MANY_OPEN, SYS_TOO_MANY_OPEN}},
    {EMFILE, {LIB_TOO_MANY_OPEN, SYS_TOO_MANY_OPEN}},
    {ENOTTY, {LIB_INVALID, SYS_INVALID_PARAMETER}},
    {ETXTBSY, {LIB_ACCESS, SYS_SHARING_VIOLATION}},
    {EFBIG, {LIB_TOO_BIG, SYS_FILE_TOO_LARGE}},
    {ENOSPC, {LIB_NO_SPACE, SYS_DISK_FULL}},
    {EDQUOT, {LIB_NO_SPACE, SYS_DISK_FULL}},
    {ESPIPE, {LIB_BAD_SEEK, SYS_INVALID_PARAMETER}},
    {EROFS, {LIB_READ_ONLY, SYS_WRITE_PROTECT}},
    {EMLINK, {LIB_TOO_MANY_LINKS, SYS_TOO_MANY_LINKS}},
    {EPIPE, {LIB_BROKEN_PIPE, SYS_BROKEN_PIPE}},
    {EDEADLK, {LIB_DEADLOCK, SYS_SHARING_VIOLATION}},
    {ENAMETOOLONG, {LIB_NAME_TOO_LONG, SYS_FILENAME_TOO_LONG}},
    {ENOLCK, {LIB_NO_LOCKS, SYS_NO_RESOURCES}},
    {ENOSYS, {LIB_NOT_SUPPORTED, SYS_NOT_SUPPORTED}},
    {EOPNOTSUPP, {LIB_NOT_SUPPORTED, SYS_NOT_SUPPORTED}},
    {ENOTEMPTY, {LIB_NOT_EMPTY, SYS_DIR_NOT_EMPTY}},
    {ELOOP, {LIB_LOOP, SYS_CANT_RESOLVE_FILENAME}},
    {EILSEQ, {LIB_BAD_SEQUENCE, SYS_INVALID_NAME}},
    {EOVERFLOW, {LIB_TOO_BIG, SYS_FILE_TOO_LARGE}},
    {ESTALE, {LIB_ACCESS, SYS_SHARING_VIOLATION}},       // another host has put something else there: look again
    {ENOTCONN, {LIB_ACCESS, SYS_SHARING_VIOLATION}},     // the program that serves a file system is away
    {ECONNABORTED, {LIB_ACCESS, SYS_SHARING_VIOLATION}}, // it went just now
    {ENODATA, {LIB_IO, SYS_IO}},                         // so disks tell of an unreadable sector
    {EREMOTEIO, {LIB_IO, SYS_IO}},
    {EUCLEAN, {LIB_IO, SYS_IO}}, // a damaged file system, or a block whose checksum is wrong
    {EBADMSG, {LIB_IO, SYS_IO}},
    {ETIMEDOUT, {LIB_TIMED_OUT, SYS_TIMEOUT}},
    {EADDRINUSE, {LIB_EXISTS, SYS_ALREADY_EXISTS}},
    {ECONNREFUSED, {LIB_OTHER, SYS_CONNECTION_REFUSED}},
    {ECONNRESET, {LIB_BROKEN_PIPE, SYS_BROKEN_PIPE}},
};

thread_local SError t_lastError;

} // namespace

SError LastError() { return t_lastError; }

void SetLastError(SError error) { t_lastError = error; }

bool IsShortage(SError error)
{
    return error.dwSysError == SYS_NO_MEMORY || error.dwSysError == SYS_TOO_MANY_OPEN ||
           error.dwSysError == SYS_NO_RESOURCES;
}

bool IsBusy(SError error)
{
    return error.dwSysError == SYS_SHARING_VIOLATION || error.iLibError == LIB_DEADLOCK || IsShortage(error);
}

SError ErrorFromErrno(int iErrno)
{
    if (iErrno == 0)
        return {};
    const auto* pCase = std::find_if(std::begin(ERRNO_CASES), std::end(ERRNO_CASES),
                                     [iErrno](const SErrnoCase& candidate) { return candidate.iErrno == iErrno; });
    return pCase == std::end(ERRNO_CASES) ? SError{LIB_OTHER, SYS_GENERAL_FAILURE} : pCase->error;
}

SError CreationErrorFromErrno(int iErrno)
{
    return iErrno == EAGAIN ? SError{LIB_NO_MEMORY, SYS_NO_RESOURCES} : ErrorFromErrno(iErrno);
}

} // namespace Platform
