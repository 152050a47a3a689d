// Sockets between processes of one machine.

#include "Platform/CInjectedFault.h"
#include "Platform/CLocalListener.h"
#include "Platform/Errors.h"
#include "support/CTemporaryDirectory.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Platform;

namespace {

CWaitLimit Soon() { return CWaitLimit().For(50); }

uint32_t FailureOf(bool bDone) { return bDone ? SYS_NONE : LastError().dwSysError; }

TEST(LocalSocket, CarriesBothWaysAndTellsWhoIsThere)
{
    const CTemporaryDirectory directory;
    const std::string strPath = directory / "control";
    CLocalListener listener;
    ASSERT_TRUE(listener.Listen(strPath.c_str(), 0660, 4));
    struct stat status;
    ASSERT_EQ(stat(strPath.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0660u);
    CLocalSocket client, server;
    EXPECT_EQ(FailureOf(listener.Accept(server, Soon())), SYS_TIMEOUT);
    ASSERT_TRUE(client.Connect(strPath.c_str(), {}) && listener.Accept(server, {}));
    SLocalPeer peer;
    ASSERT_TRUE(server.Peer(peer));
    EXPECT_EQ(peer.dwUser, getuid());
    EXPECT_EQ(peer.iProcess, getpid());
    ASSERT_TRUE(client.Send("ask\n", {}) && client.ShutdownSending());
    char szText[16];
    EXPECT_EQ(server.Receive(szText, sizeof szText, {}), 4);
    EXPECT_EQ(server.Receive(szText, sizeof szText, {}), 0);
    EXPECT_EQ(FailureOf(client.Receive(szText, sizeof szText, Soon()) >= 0), SYS_TIMEOUT);
    const std::string strMuch(8u << 20, 'x'); // nobody reads it
    EXPECT_EQ(FailureOf(server.Send(strMuch, Soon())), SYS_TIMEOUT);
    CInjectedFault fault(EFault::LocalSocket, 1, ECONNRESET);
    EXPECT_EQ(FailureOf(client.Receive(szText, sizeof szText, {}) >= 0), SYS_BROKEN_PIPE);
}

TEST(LocalSocket, TakesTheNameOfADeadListenerOnly)
{
    const CTemporaryDirectory directory;
    const std::string strPath = directory / "control", strFile = directory.Write("file", "kept");
    CLocalSocket client;
    EXPECT_EQ(FailureOf(client.Connect(strPath.c_str(), Soon())), SYS_FILE_NOT_FOUND);
    EXPECT_EQ(FailureOf(client.Connect(std::string(108, 'x').c_str(), Soon())), SYS_FILENAME_TOO_LONG);
    CLocalListener first, second, third;
    ASSERT_TRUE(first.Listen(strPath.c_str(), 0600, 1));
    EXPECT_EQ(FailureOf(second.Listen(strPath.c_str(), 0600, 1)), SYS_ALREADY_EXISTS);
    EXPECT_EQ(FailureOf(second.Listen(strFile.c_str(), 0600, 1)), SYS_ALREADY_EXISTS);
    EXPECT_EQ(directory.Read("file"), "kept");
    const std::string strDead = directory / "dead";
    ASSERT_EQ(link(strPath.c_str(), strDead.c_str()), 0);
    first.Close();
    EXPECT_EQ(FailureOf(client.Connect(strDead.c_str(), Soon())), SYS_CONNECTION_REFUSED);
    ASSERT_TRUE(second.Listen(strDead.c_str(), 0600, 1));
    ASSERT_EQ(unlink(strDead.c_str()), 0);
    ASSERT_TRUE(third.Listen(strDead.c_str(), 0600, 1));
    second.Close(); // whose name is another's by now
    EXPECT_TRUE(client.Connect(strDead.c_str(), {}));
    EXPECT_EQ(directory.Names(), (std::set<std::string>{"file", "dead"}));
}

} // namespace
