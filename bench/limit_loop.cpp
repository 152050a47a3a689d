// What the disk allows: does for each file of a queue directory the file operations that a delivery cannot do without,
// and nothing else, and prints the copies per second. The daemon's rate is told as a part of this one.
//
// limit_loop QUEUE SPOOL USERS RECIPIENTS: user numbers go round; SPOOL/user<n>/config must exist.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int GROUP = 64;

[[noreturn]] void Fail(const std::string& strWhat)
{
    std::perror(strWhat.c_str());
    std::exit(1);
}

std::string ReadFile(const std::string& strPath)
{
    const int iFile = open(strPath.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status
    {};
    if (iFile < 0 || fstat(iFile, &status) != 0)
        Fail(strPath);
    std::string strContent(static_cast<size_t>(status.st_size), '\0');
    if (read(iFile, strContent.data(), strContent.size()) != status.st_size)
        Fail(strPath);
    close(iFile);
    return strContent;
}

void WriteFile(const std::string& strPath, const std::string& strContent)
{
    const std::string strTemporary = strPath + ".tmp";
    const int iFile = open(strTemporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (iFile < 0 || write(iFile, strContent.data(), strContent.size()) != static_cast<ssize_t>(strContent.size()))
        Fail(strTemporary);
    close(iFile);
    if (rename(strTemporary.c_str(), strPath.c_str()) != 0)
        Fail(strPath);
}

std::vector<std::string> FilesOf(const std::string& strDirectory)
{
    std::vector<std::string> files;
    DIR* pDirectory = opendir(strDirectory.c_str());
    if (pDirectory == nullptr)
        Fail(strDirectory);
    while (const dirent* pEntry = readdir(pDirectory)) {
        if (pEntry->d_name[0] != '.')
            files.push_back(strDirectory + "/" + pEntry->d_name);
    }
    closedir(pDirectory);
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5)
        return 2;
    const std::string strSpool = argv[2];
    const int nUsers = std::atoi(argv[3]);
    const int nRecipients = std::atoi(argv[4]);
    const int iVolume = open(argv[2], O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::string> delivered;
    int nCopies = 0;
    int nFlushed = 0;
    const auto Finish = [&] {
        if (syncfs(iVolume) != 0)
            Fail("syncfs");
        for (const std::string& strFile : delivered)
            unlink(strFile.c_str());
        delivered.clear();
        nFlushed = nCopies;
    };
    for (const std::string& strFile : FilesOf(argv[1])) {
        const std::string strMail = ReadFile(strFile);
        for (int n = 0; n < nRecipients; ++n, ++nCopies) {
            const std::string strUser = strSpool + "/user" + std::to_string(nCopies % nUsers);
            const std::string strNumber = std::to_string(nCopies / nUsers + 1);
            ReadFile(strUser + "/config");
            WriteFile(strUser + "/" + strNumber + ".eml", strMail);
            WriteFile(strUser + "/config", "NextUID: " + strNumber + "\n");
        }
        delivered.push_back(strFile);
        if (nCopies - nFlushed + nRecipients > GROUP)
            Finish();
    }
    Finish();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    std::printf("%.1f\n", nCopies / elapsed.count());
    close(iVolume);
    return 0;
}
