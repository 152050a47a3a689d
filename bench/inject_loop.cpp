// What handing in a mail cannot do without, and nothing else: inject_loop DIRECTORY NAME writes standard input into a
// file, flushes it, renames it and flushes the directory. tobix-inject's rate is told as a part of this one's.

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace {

void Require(bool bDone, const char* pszWhat)
{
    if (bDone)
        return;
    std::perror(pszWhat);
    std::exit(1);
}

} // namespace

int main(int nArguments, char** ppArguments)
{
    Require(nArguments == 3 && chdir(ppArguments[1]) == 0, "directory");
    const int iDirectory = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const int iFile = open("new", O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0640);
    Require(iDirectory >= 0 && iFile >= 0, "open");
    static char s_buffer[65536];
    for (ssize_t iRead = 1; iRead > 0;) {
        iRead = read(STDIN_FILENO, s_buffer, sizeof s_buffer);
        Require(iRead >= 0 && write(iFile, s_buffer, static_cast<size_t>(iRead)) == iRead, "copy");
    }
    Require(fsync(iFile) == 0 && close(iFile) == 0 && rename("new", ppArguments[2]) == 0 && fsync(iDirectory) == 0,
            "write");
    return 0;
}
