// zynet: the ZyNetwork command-line tool. Every subcommand goes through the
// library's public interface only.
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "Tool.h"
#include "ZyNetwork/ZySockInit.h"

namespace zynet
{
// The options and URL forms that get, put, ls and head all take.
#define TRANSFER_OPTIONS                                                                           \
    "  --user USER:PASSWORD        credentials for the server\n"                                   \
    "  --proxy HOST:PORT           an HTTP proxy (--proxy-user USER:PASSWORD for its login)\n"     \
    "  --cacert FILE               verify the server with the CA certificates in FILE\n"           \
    "  --insecure, -k              accept any server certificate\n"                                \
    "  --timeout SEC               give up after SEC seconds\n"                                    \
    "  --client NAME               curl (default) or another client of this platform\n"            \
    "  --key FILE [--pass PHRASE]  sftp: log in with this private key (and its passphrase)\n"      \
    "  --known-hosts FILE          sftp: check the host key against FILE (default\n"               \
    "                              ~/.ssh/known_hosts; --insecure turns the check off)\n"          \
    "  --verbose                   after a failure's first line, the library's error stack\n"      \
    "URLs: http://, https://, ftp://, ftps:// (explicit TLS) and sftp://. A progress line is\n"   \
    "drawn on stderr when it is a terminal. Passwords are never printed (user:***@)."

const std::vector<Command>& Commands()
{
    static const std::vector<Command> commands = {
        {"tour", "", "a walk through the library on loopback (the default)",
         "Exercises the library on loopback with no setup: a socket pair echo, TCP echo with time\n"
         "limits over IPv4, IPv6 and a Unix path, a selector over many sockets, resolving localhost,\n"
         "the interface list and a ping of 127.0.0.1 (when raw sockets are permitted). Each step is\n"
         "reported with its timing. The default when no subcommand is given.",
         RunTour},
        {"resolve", "NAME [--all] [-4|-6]", "host name to addresses",
         "Resolves NAME and prints the first IPv4 or IPv6 address in resolver order.\n"
         "  --all  print every address\n"
         "  -4     IPv4 only\n"
         "  -6     IPv6 only\n"
         "A NAME holding '/' or '\\' is a Unix-domain path and is not looked up.",
         RunResolve},
        {"reverse", "ADDR", "address to host name", "Looks up the host name of the numeric address ADDR.", RunReverse},
        {"addr", "TEXT [-p PORT]", "parse an address and show its record",
         "Converts the numeric address or Unix path TEXT into an address record and shows its\n"
         "family, port, length and text.\n"
         "  -p PORT  set the port (0-65535) before showing the record",
         RunAddr},
        {"ifaces", "[--macs] [--names]", "interface addresses, hardware addresses, host names",
         "Lists the interface addresses with their network addresses.\n"
         "  --macs   also list the adapters' hardware addresses\n"
         "  --names  also list the host names of the non-loopback addresses",
         RunIfaces},
        {"cidr", "ADDR BLOCK", "is an IPv4 address within a block", "Tells whether the IPv4 address ADDR lies within BLOCK (address/prefix).", RunCidr},
        {"mask", "PREFIX", "IPv4 subnet mask of a prefix length", "Prints the IPv4 subnet mask of a prefix length from 1 to 32.", RunMask},
        {"probe", "", "which protocol stacks are present", "Lists which protocol stacks this machine has: IPv4, IPv6 and Unix-domain sockets.",
         RunProbe},
        {"blacklist", "FILE [ADDR...]", "load a blacklist file and check addresses",
         "Loads a blacklist file (one host name, address or Unix path per line), lists its\n"
         "entries and tells for each ADDR whether it is blacklisted.",
         RunBlacklist},
        {"ping", "HOST [-c N] [-s SIZE] [-W SEC]", "ICMP echo with per-reply lines and a summary",
         "Sends ICMP echo requests to the IPv4 host HOST, one a second, and prints a line per reply\n"
         "and a summary. Needs raw-socket permission (root or CAP_NET_RAW).\n"
         "  -c N     number of requests (default 4)\n"
         "  -s SIZE  payload bytes (default 56)\n"
         "  -W SEC   seconds to wait for each reply (default 1)",
         RunPing},
        {"get", "URL [-o FILE [-c]] [OPTIONS]", "download a URL to a file or stdout",
         "Downloads URL into FILE (or to stdout without -o; --json needs -o), following redirects.\n"
         "FILE is replaced only when the download succeeds (the body goes to a temporary file\n"
         "beside it first); the body of a failed answer never reaches stdout.\n"
         "  --continue, -c              FILE holds the start: ask for the rest and append it\n"
         "                              (HTTP); after a failure FILE keeps what arrived\n"
         "  --retry N                   try again up to N times after refused, reset, cut or\n"
         "                              timed-out connections and 5xx answers (pauses 1, 2, 4 ... s)\n"
         TRANSFER_OPTIONS,
         RunGet},
        {"put", "FILE URL [OPTIONS]", "upload a file to a URL",
         "Sends the local FILE to URL (HTTP PUT, FTP STOR, SFTP write; missing directories are\n"
         "made), reading it while it is sent.\n"
         TRANSFER_OPTIONS,
         RunPut},
        {"ls", "URL [OPTIONS]", "list a directory",
         "Lists the directory at URL (a generated listing page, FTP MLSD/LIST, SFTP): type, size,\n"
         "date, name.\n"
         TRANSFER_OPTIONS,
         RunLs},
        {"head", "URL [OPTIONS]", "status and size of a URL without its body",
         "Asks for URL's headers only and prints the status and the size.\n"
         TRANSFER_OPTIONS,
         RunHead},
        {"rm", "URL [OPTIONS]", "delete a file on an FTP or SFTP server",
         "Deletes the file at URL (ftp://, ftps:// or sftp://).\n"
         "  --user USER:PASSWORD        credentials for the server\n"
         "  --cacert FILE, --insecure   as for get\n"
         "  --key FILE [--pass PHRASE], --known-hosts FILE   as for get (sftp)",
         RunRm},
        {"mkdir", "URL [OPTIONS]", "make a directory on an FTP or SFTP server",
         "Makes the directory at URL (ftp://, ftps:// or sftp://).\n"
         "  --user USER:PASSWORD        credentials for the server\n"
         "  --cacert FILE, --insecure   as for get\n"
         "  --key FILE [--pass PHRASE], --known-hosts FILE   as for get (sftp)",
         RunMkdir},
        {"curl-version", "", "the curl library file loaded, its version and protocols",
         "Loads the curl library as the transfer functions do and shows which file was loaded,\n"
         "curl's version text, its protocols and its TLS back-end, or \"Failed to load libcurl\"\n"
         "(exit status 1) when no file could be loaded. The file is the one named by the\n"
         "environment variable ZYNET_CURL_LIBRARY when that is set; otherwise \"RKCurl.dll\" beside\n"
         "ZyNetwork.dll on Windows, and on Linux \"libRKCurl.so\" beside libZyNetwork.so when it\n"
         "exists, else the system's libcurl.so.4.",
         RunCurlVersion},
        {"proxy", "[URL [--pac PAC_URL]]", "proxy settings WinHTTP reports (Windows only)",
         "Prints WinHTTP's default proxy configuration and the current user's (proxy, bypass list,\n"
         "auto-configuration URL, auto-detection), and with URL the proxy for that URL.\n"
         "  --pac PAC_URL  take the proxy for URL from this auto-configuration script; without it\n"
         "                 the proxy is auto-detected (DHCP and DNS look-ups on the network)\n"
         "Elsewhere than on Windows it reports that it is not available.",
         RunProxy},
        {"upload-log", "FILE URL [--ccid ID] [--jsp]", "upload a log file as a multipart form (Windows)",
         "Uploads FILE to the log-collecting server at URL (the directory that holds the upload\n"
         "handler) as a multipart form, over WinINet. Windows only.\n"
         "  --ccid ID          the client identifier sent with the file (default \"NO CCID\")\n"
         "  --jsp              post to httplogupload.do with the user name and password in the\n"
         "                     form (otherwise upload.asp)\n"
         "  --user USER:PASS   Basic authorization\n"
         "  --insecure         accept any server certificate\n"
         "  --timeout SEC      time limit for connecting and each wait for the server",
         RunUploadLog},
    };
    return commands;
}
#undef TRANSFER_OPTIONS
}  // namespace zynet

namespace
{
using zynet::Command;

void PrintUsageLine(FILE* stream, const Command& command)
{
    std::fprintf(stream, "usage: zynet [--json] %s%s%s\n", command.name, command.synopsis[0] ? " " : "",
                 command.synopsis);
}

void PrintCommandHelp(const Command& command)
{
    PrintUsageLine(stdout, command);
    std::printf("\n%s\n", command.help);
}

void PrintMainHelp(FILE* stream)
{
    std::fprintf(stream,
                 "usage: zynet [--json] [COMMAND] [ARGS...]\n"
                 "\n"
                 "The ZyNetwork command-line tool. Without a command it runs `tour`.\n"
                 "  --json     machine-readable output (one JSON document on stdout)\n"
                 "  --verbose  after an error's first line, the library's whole error stack\n"
                 "  --help     this text; `zynet COMMAND --help` describes a command\n"
                 "  --version  the library version\n"
                 "\n"
                 "commands:\n");
    for (const Command& command : zynet::Commands())
        std::fprintf(stream, "  %-12s %-32s %s\n", command.name, command.synopsis, command.summary);
    std::fprintf(stream, "\nExit status: 0 success, 1 a network or library failure, 2 bad arguments.\n");
}

const Command* FindCommand(const std::string& name)
{
    for (const Command& command : zynet::Commands())
    {
        if (name == command.name)
            return &command;
    }
    return nullptr;
}
}  // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> args;
    bool json = false;
    bool help = false;
    bool verbose = false;
    bool optionsEnded = false;
    // --json, --verbose and --help are accepted anywhere before "--".
    for (int i = 1; i < argc; ++i)
    {
        const std::string arg = argv[i];
        if (!optionsEnded && arg == "--json")
            json = true;
        else if (!optionsEnded && arg == "--verbose")
            verbose = true;
        else if (!optionsEnded && (arg == "--help" || arg == "-h"))
            help = true;
        else
        {
            if (arg == "--")
                optionsEnded = true;
            args.push_back(arg);
        }
    }

    const Command* command = FindCommand("tour");
    if (!args.empty() && args[0] == "--version")
    {
        std::printf("zynet %s\n", ZYNET_VERSION);
        return zynet::kExitOk;
    }
    if (!args.empty() && args[0] != "--")
    {
        command = FindCommand(args[0]);
        if (!command)
        {
            std::fprintf(stderr,
                         "zynet: unknown command '%s'\n"
                         "usage: zynet [--json] [COMMAND] [ARGS...]  (`zynet --help` lists the commands)\n",
                         args[0].c_str());
            return zynet::kExitUsage;
        }
        args.erase(args.begin());
    }
    else if (help)
    {
        PrintMainHelp(stdout);
        return zynet::kExitOk;
    }
    if (help)
    {
        PrintCommandHelp(*command);
        return zynet::kExitOk;
    }

    CZySockInit sockets;
    CZyError started = sockets.Init();
    zynet::Output out(command->name, json, verbose);
    int rc;
    if (started.IsError())
    {
        rc = out.Fail("the socket library did not start", started);
    }
    else
    {
        try
        {
            rc = command->run(out, args);
        }
        catch (const zynet::UsageError& error)
        {
            std::fprintf(stderr, "zynet %s: %s\n", command->name, error.what());
            PrintUsageLine(stderr, *command);
            return zynet::kExitUsage;
        }
        catch (const std::exception& error)
        {
            rc = out.Fail(std::string("unexpected failure: ") + error.what());
        }
    }
    out.Finish(rc);
    std::fflush(stdout);
    return rc;
}
