// What listing waiting mail cannot do without, and nothing else: list_loop DIRECTORY lists it and reads 4 KiB of each
// file. What `tobixctl queue` takes is told as a multiple of this.

#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

int main(int nArguments, char** ppArguments)
{
    DIR* const pDirectory = nArguments == 2 && chdir(ppArguments[1]) == 0 ? opendir(".") : nullptr;
    if (pDirectory == nullptr) {
        std::perror("directory");
        return EXIT_FAILURE;
    }
    unsigned nRead = 0;
    while (const dirent* const pEntry = readdir(pDirectory)) {
        static char s_buffer[4096];
        const int iFile = open(pEntry->d_name, O_RDONLY | O_CLOEXEC);
        if (iFile >= 0 && read(iFile, s_buffer, sizeof s_buffer) > 0)
            ++nRead;
        close(iFile);
    }
    closedir(pDirectory);
    std::printf("%u\n", nRead);
    return EXIT_SUCCESS;
}
