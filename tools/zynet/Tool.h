// The zynet tool's command framework: the output context shared by every
// subcommand, argument parsing and the table of subcommands.
#pragma once

#include <cstdio>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "Json.h"
#include "ZyNetwork/ZyIPAddr.h"
#include "ZyUtils/ZyError.h"

namespace zytool
{
// Exit codes: 0 success, 1 a library call failed, 2 bad arguments.
enum
{
    kExitOk = 0,
    kExitFailure = 1,
    kExitUsage = 2
};

// Raised by argument parsing; main prints the message and the usage line.
class UsageError : public std::runtime_error
{
public:
    explicit UsageError(const std::string& message) : std::runtime_error(message) {}
};

// What a subcommand writes to. Human lines go to stdout as they come; in
// JSON mode they are dropped and the command fills `result`, which main
// prints once the command returns.
class Output
{
public:
    Output(const std::string& command, bool json, bool verbose = false);

    bool IsJson() const { return m_json; }
    bool IsVerbose() const { return m_verbose; }
    zytool::Json& Result() { return m_result; }
    // A line of human output (printf-style); nothing in JSON mode.
    void Line(const char* format, ...) ZY_PRINTF_LIKE(2, 3);
    // Reports a failed library call: in human mode one line on stderr,
    // "zynet COMMAND: WHAT: CAUSE", and with --verbose the error's whole
    // stack; in JSON mode an "error" member with the stack. An empty cause
    // is the error's own message.
    int Fail(const std::string& what, const CZyError& error, const std::string& cause = std::string());
    // Reports a failure that is not a library error (e.g. a failed check).
    int Fail(const std::string& what);
    // As the two above for one item of several results: in JSON mode the
    // "error" member goes into `item`.
    int Fail(Json& item, const std::string& what, const CZyError& error, const std::string& cause = std::string());
    int Fail(Json& item, const std::string& what);
    // Prints the JSON document (JSON mode only).
    void Finish(int exitCode);
    // A text that must never be printed (a password): the tool writes
    // "***" wherever it would appear.
    void AddSecret(const std::string& secret);
    std::string Scrub(std::string text) const;

private:
    std::string m_command;
    bool m_json;
    bool m_verbose;
    std::vector<std::string> m_secrets;
    zytool::Json m_result;
};

// The JSON form of an error value.
Json ErrorJson(const CZyError& error);

// Parsed command-line arguments of one subcommand.
struct Args
{
    std::set<std::string> flags;               // boolean options given
    std::map<std::string, std::string> values; // options with a value
    std::vector<std::string> positional;

    bool Has(const std::string& name) const { return flags.count(name) != 0; }
    bool HasValue(const std::string& name) const { return values.count(name) != 0; }
};

// Splits `args` into options and positional arguments. `boolFlags` and
// `valueFlags` name the accepted options ("-4", "--all", "-c"); a value
// option takes the next argument or the rest of its own ("-c3"). "--" ends
// the options. Anything else starting with '-' is a usage error, as is a
// positional count outside [minPositional, maxPositional].
Args ParseArgs(const std::vector<std::string>& args, const std::vector<std::string>& boolFlags,
               const std::vector<std::string>& valueFlags, size_t minPositional, size_t maxPositional);

// A decimal integer in [minimum, maximum]; anything else is a usage error
// naming `what`.
long long ParseInteger(const std::string& text, long long minimum, long long maximum, const char* what);

// One option of a command, as the argument parser accepts it and as --help,
// the man page and the bash completion show it: all of them read the table
// of commands, so none can list what another does not.
struct Option
{
    // What the completion offers for the option's value.
    enum Values
    {
        kAnyText,  // nothing: a value of the user's own
        kFiles,    // file names
        kDirectories,
        kWords  // the words of `words`
    };
    std::vector<std::string> names;  // "--continue", "-c": the long name first
    std::string value;               // the value's placeholder ("N", "FILE"); "" for a flag
    std::string help;                // its help; '\n' starts another line
    Values values = kAnyText;
    std::vector<std::string> words;  // kWords: the values to offer
};

struct Command
{
    const char* name;
    const char* synopsis;  // arguments after the name, for the usage line
    const char* summary;   // one line for the command list
    const char* help;      // what the command does, before its options
    int (*run)(Output& out, const std::vector<std::string>& args);
    std::vector<Option> options = {};  // every option the command accepts
    const char* notes = "";            // text after the options ("" for none)
};

// Every subcommand, in the order the help lists them, and the options
// accepted before any command (--json, --verbose, --help, --version).
const std::vector<Command>& Commands();
const std::vector<Option>& GlobalOptions();
const Command* FindCommand(const std::string& name);

// ParseArgs with the options that the table lists for `command`.
Args ParseCommandArgs(const std::vector<std::string>& args, const char* command, size_t minPositional,
                      size_t maxPositional);

// What `zynet --help`, `zynet COMMAND --help`, `zynet --man` and
// `zynet --completion bash` print (Help.cpp).
void PrintUsageLine(FILE* stream, const Command& command);
void PrintMainHelp(FILE* stream);
void PrintCommandHelp(const Command& command);
void PrintManPage(FILE* stream);
void PrintBashCompletion(FILE* stream);

int RunAddr(Output& out, const std::vector<std::string>& args);
int RunResolve(Output& out, const std::vector<std::string>& args);
int RunReverse(Output& out, const std::vector<std::string>& args);
int RunCidr(Output& out, const std::vector<std::string>& args);
int RunMask(Output& out, const std::vector<std::string>& args);
int RunProbe(Output& out, const std::vector<std::string>& args);
int RunIfaces(Output& out, const std::vector<std::string>& args);
int RunBlacklist(Output& out, const std::vector<std::string>& args);
int RunPing(Output& out, const std::vector<std::string>& args);
int RunTour(Output& out, const std::vector<std::string>& args);
int RunGet(Output& out, const std::vector<std::string>& args);
int RunPut(Output& out, const std::vector<std::string>& args);
int RunLs(Output& out, const std::vector<std::string>& args);
int RunHead(Output& out, const std::vector<std::string>& args);
int RunRm(Output& out, const std::vector<std::string>& args);
int RunMkdir(Output& out, const std::vector<std::string>& args);
int RunCurlVersion(Output& out, const std::vector<std::string>& args);
// Windows only; elsewhere it reports that it is not available.
int RunProxy(Output& out, const std::vector<std::string>& args);
// Windows only; elsewhere it fails with a message saying so.
int RunUploadLog(Output& out, const std::vector<std::string>& args);

// The tour's ping of 127.0.0.1: one echo request. Raw sockets need
// privileges, so "not permitted" is an outcome of its own.
enum PingTourOutcome
{
    kPingTourOk,
    kPingTourNotPermitted,
    kPingTourBusy,
    kPingTourFailed
};
PingTourOutcome PingForTour(std::string& detail, CZyError& error);

// The text form of an address, or "?" when it has none.
std::string AddressText(const CZyIPAddr& address);
}  // namespace zytool
