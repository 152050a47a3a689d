#include "Platform/ServiceUnit.h"

#include "Platform/CommandLine.h"
#include "Platform/linux/service/ServiceUser.h"

#include <algorithm>

namespace Platform {

namespace {

/// systemd takes such a word as it stands.
bool IsPlain(std::string_view strWord)
{
    return !strWord.empty() && std::all_of(strWord.begin(), strWord.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               std::string_view("_-./:=,@+").find(c) != std::string_view::npos;
    });
}

std::string Doubled(std::string_view strText, std::string_view strCharacters)
{
    std::string strDoubled;
    for (const char c : strText) {
        if (strCharacters.find(c) != std::string_view::npos)
            strDoubled += c;
        strDoubled += c;
    }
    return strDoubled;
}

/// A word of systemd.syntax(7): specifiers begin with "%", and in the arguments of a command variables with "$".
std::string Word(std::string_view strWord, bool bArgument = false)
{
    if (IsPlain(strWord))
        return std::string(strWord);
    std::string strQuoted = "\"";
    for (const char c : Doubled(strWord, bArgument ? "%$" : "%")) {
        if (c == '"' || c == '\\')
            strQuoted += '\\';
        strQuoted += c;
    }
    return strQuoted += '"';
}

std::string CommandLine(const SServiceEntry& entry)
{
    std::string strLine = Word(entry.strExecutable);
    for (const std::string& strArgument : SplitCommandLine(entry.strParameters))
        strLine += ' ' + Word(strArgument, true);
    return strLine;
}

/// Where crash dumps, the PID file, lock files and mails are written.
std::string WritablePaths(const SServiceEntry& entry)
{
    std::vector<std::string> directories{entry.strExecutable.substr(0, entry.strExecutable.rfind('/'))};
    directories.push_back(entry.strConfigDirectory);
    directories.insert(directories.end(), entry.writableDirectories.begin(), entry.writableDirectories.end());
    directories.emplace_back("/run/lock");
    std::string strLines;
    std::vector<std::string> seen{""};
    for (const std::string& strDirectory : directories) {
        if (std::find(seen.begin(), seen.end(), strDirectory) != seen.end())
            continue;
        seen.push_back(strDirectory);
        strLines += "ReadWritePaths=" + Word('-' + strDirectory) + '\n';
    }
    return strLines;
}

/// A backslash at the end would join the next line.
std::string Description(const SServiceEntry& entry)
{
    std::string strText = Doubled(entry.strDisplayName, "%");
    if (!strText.empty() && strText.back() == '\\')
        strText += ' ';
    return strText;
}

constexpr const char UNIT[] = R"([Unit]
Description=@DESCRIPTION@
Wants=network-online.target
After=network-online.target nss-lookup.target
StartLimitIntervalSec=300
StartLimitBurst=5

[Service]
Type=notify
NotifyAccess=main
ExecStart=@COMMAND@
# A small system has no program for it, but every shell has the command.
ExecReload=/bin/sh -c "kill -HUP $MAINPID"
# Sessions are echoed for the console; the log has what matters of them.
StandardOutput=null
StandardError=journal
# Every line of the log is in the journal.
LogRateLimitIntervalSec=0
@ENVIRONMENT@Restart=on-failure
RestartSec=10
# Told only while every thread gets on.
WatchdogSec=300
# Each worker may take a minute to finish what it sends.
TimeoutStopSec=300
# Programs that it started for a mail finish that mail.
KillMode=process
# Sessions, queue files and watched directories take one each.
LimitNOFILE=524288

# The account comes from sysusers.d; it must own the mail directories.
User=@USER@
DynamicUser=no
UMask=0027

# The system is read-only but for these; one that is missing is passed over.
ProtectSystem=strict
ProtectHome=read-only
@WRITABLE@# Named locks; other services of the account and programs started by hand share them.
RuntimeDirectory=tobix
RuntimeDirectoryPreserve=yes
PrivateTmp=yes
PrivateDevices=yes
ProtectClock=yes
ProtectControlGroups=yes
ProtectHostname=yes
ProtectKernelLogs=yes
ProtectKernelModules=yes
ProtectKernelTunables=yes
LockPersonality=yes
NoNewPrivileges=yes
RemoveIPC=yes
RestrictAddressFamilies=AF_UNIX AF_INET AF_INET6 AF_NETLINK
RestrictNamespaces=yes
RestrictRealtime=yes
RestrictSUIDSGID=yes
SystemCallArchitectures=native
# Crash dumps are written with ptrace: @debug stays allowed.
SystemCallFilter=~@clock @cpu-emulation @module @mount @obsolete @raw-io @reboot @swap
SystemCallErrorNumber=EPERM
# A lease tells whether another user's program still writes a queue file.
CapabilityBoundingSet=CAP_LEASE
AmbientCapabilities=CAP_LEASE

[Install]
WantedBy=multi-user.target
)";

void Fill(std::string& strText, std::string_view strPlace, std::string_view strValue)
{
    strText.replace(strText.find(strPlace), strPlace.size(), strValue);
}

} // namespace

std::string ComposeUnit(const SServiceEntry& entry)
{
    const std::string strEnvironment = entry.strConfigDirectory.empty()
                                           ? ""
                                           : "Environment=" + Word("MAILCONFIGDIR=" + entry.strConfigDirectory) + '\n';
    std::string strText = UNIT;
    // From the last to the first: a value that looks like a place is then not filled in.
    Fill(strText, "@WRITABLE@", WritablePaths(entry));
    Fill(strText, "@USER@", SERVICE_USER);
    Fill(strText, "@ENVIRONMENT@", strEnvironment);
    Fill(strText, "@COMMAND@", CommandLine(entry));
    Fill(strText, "@DESCRIPTION@", Description(entry));
    return strText;
}

} // namespace Platform
