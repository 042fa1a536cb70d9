// zynet: the ZyNetwork command-line tool. Every subcommand goes through the
// library's public interface only. This file holds the table of commands and
// their options, which the argument parsers, --help, the manual page and the
// bash completion all read (Help.cpp), and main.
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "Platform.h"
#include "Tool.h"
#include "Transfer.h"
#include "ZyNetwork/ZySockInit.h"

namespace zytool
{
namespace
{
Option Flag(std::vector<std::string> names, const char* help)
{
    Option option;
    option.names = std::move(names);
    option.help = help;
    return option;
}

Option Valued(std::vector<std::string> names, const char* value, const char* help,
              Option::Values values = Option::kAnyText)
{
    Option option = Flag(std::move(names), help);
    option.value = value;
    option.values = values;
    return option;
}

// An option whose value is one of `words`.
Option Choice(std::vector<std::string> names, const char* value, const char* help, std::vector<std::string> words)
{
    Option option = Valued(std::move(names), value, help, Option::kWords);
    option.words = std::move(words);
    return option;
}

// What the transfer commands share: how to reach and trust the server.
std::vector<Option> ConnectionOptions(bool proxyAndTimeout)
{
    std::vector<Option> options = {
        Valued({"--user"}, "USER:PASSWORD", "credentials for the server"),
        Valued({"--cacert"}, "FILE", "verify the server with the CA certificates in FILE", Option::kFiles),
        Flag({"--insecure", "-k"}, "accept any server certificate (sftp: skip the host-key check)"),
        Valued({"--key"}, "FILE", "sftp: log in with this private key", Option::kFiles),
        Valued({"--pass"}, "PHRASE", "sftp: the passphrase of --key"),
        Valued({"--known-hosts"}, "FILE", "sftp: check the host key against FILE (default ~/.ssh/known_hosts)",
               Option::kFiles),
    };
    if (proxyAndTimeout)
    {
        options.push_back(Valued({"--proxy"}, "HOST:PORT", "an HTTP proxy"));
        options.push_back(Valued({"--proxy-user"}, "USER:PASSWORD", "the proxy's login"));
        options.push_back(Valued({"--timeout"}, "SEC", "give up after SEC seconds"));
    }
    return options;
}

// The transfer options of get, put and ls: the connection's and --client,
// whose help and values come from the clients this platform has.
std::vector<Option> ClientOptions(std::vector<Option> options)
{
    std::vector<Option> all = ConnectionOptions(true);
    std::vector<std::string> names = {kDefaultClient};
    for (const TransferClient& other : TransferClients())
        names.push_back(other.name);
    Option client = Choice({"--client"}, "NAME", "", names);
    client.help = "the client that transfers: " + client.words[0];
    if (client.words.size() == 1)
        client.help += ", the only one on this platform";
    else
        client.help += " (the default)";
    for (size_t i = 1; i < client.words.size(); ++i)
        client.help += (i + 1 == client.words.size() ? " or " : ", ") + client.words[i];
    all.push_back(client);
    options.insert(options.end(), all.begin(), all.end());
    return options;
}

const char kTransferNotes[] =
    "URLs: http://, https://, ftp://, ftps:// (explicit TLS) and sftp://. A progress line is drawn on stderr\n"
    "when it is a terminal. Passwords are never printed (user:***@).";
}  // namespace

const std::vector<Option>& GlobalOptions()
{
    static const std::vector<Option> options = {
        Flag({"--json"}, "machine-readable output (one JSON document on stdout)"),
        Flag({"--verbose"}, "after an error's first line, the library's whole error stack"),
        Flag({"--help", "-h"}, "this text; `zynet COMMAND --help` describes a command"),
        Flag({"--version"}, "the library version"),
        Flag({"--man"}, "this tool's manual page (roff), made from the table of commands"),
        Choice({"--completion"}, "bash", "the bash completion script, made from the same table", {"bash"}),
    };
    return options;
}

const std::vector<Command>& Commands()
{
    static const std::vector<Command> commands = {
        {"tour", "", "a walk through the library on loopback (the default)",
         "Exercises the library on loopback with no setup: a socket pair echo, TCP echo with time\n"
         "limits over IPv4, IPv6 and a Unix path, a selector over many sockets, resolving localhost,\n"
         "the interface list, a ping of 127.0.0.1 (when raw sockets are permitted), and HTTP\n"
         "downloads, an upload and a HEAD from a server the tour runs on loopback, through the\n"
         "loaded libcurl (and WinHTTP and WinINet on Windows). Each step is reported with its\n"
         "timing. The default when no subcommand is given.",
         RunTour},
        {"resolve",
         "NAME [--all] [-4|-6]",
         "host name to addresses",
         "Resolves NAME and prints the first IPv4 or IPv6 address in resolver order.\n"
         "A NAME holding '/' or '\\' is a Unix-domain path and is not looked up.",
         RunResolve,
         {Flag({"--all"}, "print every address"), Flag({"-4"}, "IPv4 only"), Flag({"-6"}, "IPv6 only")}},
        {"reverse", "ADDR", "address to host name", "Looks up the host name of the numeric address ADDR.", RunReverse},
        {"addr",
         "TEXT [-p PORT]",
         "parse an address and show its record",
         "Converts the numeric address or Unix path TEXT into an address record and shows its\n"
         "family, port, length and text.",
         RunAddr,
         {Valued({"-p"}, "PORT", "set the port (0-65535) before showing the record")}},
        {"ifaces",
         "[--macs] [--names]",
         "interface addresses, hardware addresses, host names",
         "Lists the interface addresses with their network addresses.",
         RunIfaces,
         {Flag({"--macs"}, "also list the adapters' hardware addresses"),
          Flag({"--names"}, "also list the host names of the non-loopback addresses")}},
        {"cidr", "ADDR BLOCK", "is an IPv4 address within a block",
         "Tells whether the IPv4 address ADDR lies within BLOCK (address/prefix).", RunCidr},
        {"mask", "PREFIX", "IPv4 subnet mask of a prefix length",
         "Prints the IPv4 subnet mask of a prefix length from 1 to 32.", RunMask},
        {"probe", "", "which protocol stacks are present",
         "Lists which protocol stacks this machine has: IPv4, IPv6 and Unix-domain sockets.", RunProbe},
        {"blacklist", "FILE [ADDR...]", "load a blacklist file and check addresses",
         "Loads a blacklist file (one host name, address or Unix path per line), lists its\n"
         "entries and tells for each ADDR whether it is blacklisted.",
         RunBlacklist},
        {"ping",
         "HOST [-c N] [-s SIZE] [-W SEC]",
         "ICMP echo with per-reply lines and a summary",
         "Sends ICMP echo requests to the IPv4 host HOST, one a second, and prints a line per reply\n"
         "and a summary. Needs raw-socket permission (root or CAP_NET_RAW).",
         RunPing,
         {Valued({"-c"}, "N", "number of requests (default 4)"), Valued({"-s"}, "SIZE", "payload bytes (default 56)"),
          Valued({"-W"}, "SEC", "seconds to wait for each reply (default 1)")}},
        {"get", "URL... [-o FILE | -d DIR] [OPTIONS]", "download URLs to a file, a directory or stdout",
         "Downloads URL into FILE (or to stdout without -o; --json needs -o or -d), following\n"
         "redirects. FILE is replaced only when the download succeeds (the body goes to a temporary\n"
         "file beside it first); the body of a failed answer never reaches stdout.\n"
         "With -d DIR, each URL is saved in DIR under its remote name: the last segment of its path,\n"
         "percent-decoded. A name that is empty, \".\" or \"..\", or that holds a '/' or '\\', is refused,\n"
         "as is a second URL of a name already taken; the other URLs are fetched all the same. The\n"
         "URLs of one scheme go through one request, so their connections are reused; URLs of\n"
         "several schemes may be mixed (one request for each scheme). A line for each file, then a\n"
         "summary; the exit status is 1 when any file failed.",
         RunGet,
         ClientOptions(
             {Valued({"-o"}, "FILE", "save into FILE (\"-\": stdout, the default for one URL)", Option::kFiles),
              Valued({"-d"}, "DIR", "save each URL into the existing directory DIR under its remote name",
                     Option::kDirectories),
              Flag({"--continue", "-c"},
                   "the file holds the start: ask for the rest and append it\n"
                   "(HTTP range, FTP REST, SFTP offset);\n"
                   "after a failure the file keeps what arrived"),
              Valued({"--retry"}, "N",
                     "try again up to N times after refused, reset, cut or timed-out\n"
                     "connections and 5xx answers (pauses 1, 2, 4 ... s)")}),
         kTransferNotes},
        {"put", "FILE URL [OPTIONS]", "upload a file to a URL",
         "Sends the local FILE to URL (HTTP PUT, FTP STOR, SFTP write; missing directories are\n"
         "made), reading it while it is sent. A URL ending in '/' names a directory: FILE's name\n"
         "is added to it.",
         RunPut, ClientOptions({}), kTransferNotes},
        {"ls", "URL [OPTIONS]", "list a directory",
         "Lists the directory at URL (a generated listing page, FTP MLSD/LIST, SFTP): type, size,\n"
         "date, name.",
         RunLs, ClientOptions({}), kTransferNotes},
        {"head", "URL [OPTIONS]", "status and size of a URL without its body",
         "Asks for URL's headers only and prints the status and the size, through curl.", RunHead,
         ConnectionOptions(true), kTransferNotes},
        {"rm", "URL [OPTIONS]", "delete a file on an FTP or SFTP server",
         "Deletes the file at URL (ftp://, ftps:// or sftp://), through curl.", RunRm, ConnectionOptions(false)},
        {"mkdir", "URL [OPTIONS]", "make a directory on an FTP or SFTP server",
         "Makes the directory at URL (ftp://, ftps:// or sftp://), through curl.", RunMkdir, ConnectionOptions(false)},
        {"curl-version", "", "the curl library file loaded, its version and protocols",
         "Loads the curl library as the transfer functions do and shows which file was loaded,\n"
         "curl's version text, its protocols and its TLS back-end, or \"Failed to load libcurl\"\n"
         "(exit status 1) when no file could be loaded. The file is the one named by the\n"
         "environment variable ZYNET_CURL_LIBRARY when that is set; otherwise \"RKCurl.dll\" beside\n"
         "ZyNetwork.dll on Windows, and on Linux \"libRKCurl.so\" beside libZyNetwork.so when it\n"
         "exists, else the system's libcurl.so.4.",
         RunCurlVersion},
        {"proxy",
         "[URL [--pac PAC_URL]]",
         "proxy settings WinHTTP reports (Windows only)",
         "Prints WinHTTP's default proxy configuration and the current user's (proxy, bypass list,\n"
         "auto-configuration URL, auto-detection), and with URL the proxy for that URL.\n"
         "Elsewhere than on Windows it reports that it is not available.",
         RunProxy,
         {Valued({"--pac"}, "PAC_URL",
                 "take the proxy for URL from this auto-configuration script; without\n"
                 "it the proxy is auto-detected (DHCP and DNS look-ups on the network)")}},
        {"upload-log",
         "FILE URL [--ccid ID] [--jsp]",
         "upload a log file as a multipart form (Windows)",
         "Uploads FILE to the log-collecting server at URL (the directory that holds the upload\n"
         "handler) as a multipart form, over WinINet. Windows only.",
         RunUploadLog,
         {Valued({"--ccid"}, "ID", "the client identifier sent with the file (default \"NO CCID\")"),
          Flag({"--jsp"},
               "post to httplogupload.do with the user name and password in the form\n"
               "(otherwise upload.asp)"),
          Valued({"--user"}, "USER:PASS", "Basic authorization"), Flag({"--insecure"}, "accept any server certificate"),
          Valued({"--timeout"}, "SEC", "time limit for connecting and each wait for the server")}},
    };
    return commands;
}

const Command* FindCommand(const std::string& name)
{
    for (const Command& command : Commands())
    {
        if (name == command.name)
            return &command;
    }
    return nullptr;
}

Args ParseCommandArgs(const std::vector<std::string>& args, const char* command, size_t minPositional,
                      size_t maxPositional)
{
    std::vector<std::string> flags;
    std::vector<std::string> values;
    for (const Option& option : FindCommand(command)->options)
    {
        std::vector<std::string>& into = option.value.empty() ? flags : values;
        into.insert(into.end(), option.names.begin(), option.names.end());
    }
    return ParseArgs(args, flags, values, minPositional, maxPositional);
}
}  // namespace zytool

using zytool::Command;
using zytool::FindCommand;

int main(int argc, char** argv)
{
    std::vector<std::string> args;
    bool json = false;
    bool help = false;
    bool verbose = false;
    bool optionsEnded = false;
    // --json, --verbose and --help are accepted anywhere before "--".
    const std::vector<std::string> commandLine = zytool::CommandLineArgs(argc, argv);
    for (size_t i = 1; i < commandLine.size(); ++i)
    {
        const std::string& arg = commandLine[i];
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
        return zytool::kExitOk;
    }
    if (!args.empty() && args[0] == "--man")
    {
        zytool::PrintManPage(stdout);
        return zytool::kExitOk;
    }
    if (!args.empty() && args[0] == "--completion")
    {
        if (args.size() != 2 || args[1] != "bash")
        {
            std::fprintf(stderr, "zynet: --completion needs a shell: bash (the only one it knows)\n");
            return zytool::kExitUsage;
        }
        zytool::PrintBashCompletion(stdout);
        return zytool::kExitOk;
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
            return zytool::kExitUsage;
        }
        args.erase(args.begin());
    }
    else if (help)
    {
        zytool::PrintMainHelp(stdout);
        return zytool::kExitOk;
    }
    if (help)
    {
        zytool::PrintCommandHelp(*command);
        return zytool::kExitOk;
    }

    CZySockInit sockets;
    CZyError started = sockets.Init();
    zytool::Output out(command->name, json, verbose);
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
        catch (const zytool::UsageError& error)
        {
            std::fprintf(stderr, "zynet %s: %s\n", command->name, error.what());
            zytool::PrintUsageLine(stderr, *command);
            return zytool::kExitUsage;
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
