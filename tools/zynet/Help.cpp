// What the tool says about itself, all of it read from the table of commands
// in main.cpp: `zynet --help`, `zynet COMMAND --help`, the manual page
// (`zynet --man`) and the bash completion script (`zynet --completion bash`).
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "Tool.h"

namespace zytool
{
namespace
{
const size_t kOptionColumn = 28;

const char kDescription[] = "The ZyNetwork command-line tool. Without a command it runs `tour`.";
const char kExitStatus[] = "Exit status: 0 success, 1 a network or library failure, 2 bad arguments.";

std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    for (size_t start = 0; !text.empty();)
    {
        const size_t end = text.find('\n', start);
        lines.push_back(text.substr(start, end - start));  // to the end when there is no '\n'
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
    return lines;
}

// "--continue, -c" or "--retry N".
std::string OptionTitle(const Option& option)
{
    std::string title;
    for (const std::string& name : option.names)
        title += (title.empty() ? "" : ", ") + name;
    if (!option.value.empty())
        title += " " + option.value;
    return title;
}

void PrintOptions(FILE* stream, const std::vector<Option>& options)
{
    for (const Option& option : options)
    {
        const std::string title = OptionTitle(option);
        const std::vector<std::string> lines = Lines(option.help);
        const bool ownLine = title.size() >= kOptionColumn;
        std::fprintf(stream, "  %-*s", static_cast<int>(kOptionColumn), title.c_str());
        for (size_t i = 0; i < lines.size(); ++i)
        {
            if (i > 0 || ownLine)
                std::fprintf(stream, "\n  %-*s", static_cast<int>(kOptionColumn), "");
            std::fprintf(stream, "%s", lines[i].c_str());
        }
        std::fputc('\n', stream);
    }
}

// ---- roff ----

// Text as roff shows it literally: backslashes and minus signs escaped, and
// a line that would start with a control character made plain text.
std::string Roff(const std::string& text)
{
    std::string out;
    bool lineStart = true;
    for (char c : text)
    {
        if (lineStart && (c == '.' || c == '\''))
            out += "\\&";
        lineStart = c == '\n';
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else
            out += c;
    }
    return out;
}

void ManOptions(FILE* stream, const std::vector<Option>& options)
{
    for (const Option& option : options)
    {
        std::string title;
        for (const std::string& name : option.names)
            title += (title.empty() ? "\\fB" : "\\fR, \\fB") + Roff(name);
        title += "\\fR";
        if (!option.value.empty())
            title += " \\fI" + Roff(option.value) + "\\fR";
        std::fprintf(stream, ".TP\n%s\n%s\n", title.c_str(), Roff(option.help).c_str());
    }
}

// ---- bash ----

// Names as one word list: "--continue -c --retry".
std::string Words(const std::vector<Option>& options)
{
    std::string words;
    for (const Option& option : options)
    {
        for (const std::string& name : option.names)
            words += (words.empty() ? "" : " ") + name;
    }
    return words;
}

// The case arms that complete the value after an option of `options`.
void CompleteValues(FILE* stream, const std::vector<Option>& options, const char* indent)
{
    std::string files, directories, text;
    for (const Option& option : options)
    {
        if (option.value.empty())
            continue;
        std::string names;
        for (const std::string& name : option.names)
            names += (names.empty() ? "" : "|") + name;
        if (option.values == Option::kFiles)
            files += (files.empty() ? "" : "|") + names;
        else if (option.values == Option::kDirectories)
            directories += (directories.empty() ? "" : "|") + names;
        else if (option.values == Option::kAnyText)
            text += (text.empty() ? "" : "|") + names;
        else
        {
            std::string words;
            for (const std::string& word : option.words)
                words += (words.empty() ? "" : " ") + word;
            std::fprintf(stream, "%s%s) _zynet_reply \"$(compgen -W '%s' -- \"$cur\")\"; return ;;\n", indent,
                         names.c_str(), words.c_str());
        }
    }
    if (!files.empty())
        std::fprintf(stream, "%s%s) _zynet_reply \"$(compgen -f -- \"$cur\")\" filenames; return ;;\n", indent,
                     files.c_str());
    if (!directories.empty())
        std::fprintf(stream, "%s%s) _zynet_reply \"$(compgen -d -- \"$cur\")\" filenames; return ;;\n", indent,
                     directories.c_str());
    if (!text.empty())
        std::fprintf(stream, "%s%s) return ;;\n", indent, text.c_str());
}
}  // namespace

void PrintUsageLine(FILE* stream, const Command& command)
{
    std::fprintf(stream, "usage: zynet [--json] %s%s%s\n", command.name, command.synopsis[0] ? " " : "",
                 command.synopsis);
}

void PrintCommandHelp(const Command& command)
{
    PrintUsageLine(stdout, command);
    std::printf("\n%s\n", command.help);
    if (!command.options.empty())
    {
        std::printf("\noptions:\n");
        PrintOptions(stdout, command.options);
    }
    if (command.notes[0])
        std::printf("\n%s\n", command.notes);
}

void PrintMainHelp(FILE* stream)
{
    std::fprintf(stream, "usage: zynet [--json] [COMMAND] [ARGS...]\n\n%s\n", kDescription);
    PrintOptions(stream, GlobalOptions());
    std::fprintf(stream, "\ncommands:\n");
    for (const Command& command : Commands())
    {
        // A synopsis too long for its column puts the summary on a line of its own.
        if (std::string(command.synopsis).size() > 32)
            std::fprintf(stream, "  %-12s %s\n  %-12s %-32s %s\n", command.name, command.synopsis, "", "",
                         command.summary);
        else
            std::fprintf(stream, "  %-12s %-32s %s\n", command.name, command.synopsis, command.summary);
    }
    std::fprintf(stream, "\n%s\n", kExitStatus);
}

void PrintManPage(FILE* stream)
{
    std::fprintf(stream,
                 ".\\\" Made by `zynet --man` from the tool's table of commands.\n"
                 ".TH ZYNET 1 \"\" \"zynet %s\" \"User Commands\"\n"
                 ".SH NAME\n"
                 "zynet \\- the ZyNetwork command\\-line tool\n"
                 ".SH SYNOPSIS\n"
                 ".B zynet\n"
                 "[\\fB\\-\\-json\\fR] [\\fB\\-\\-verbose\\fR] [\\fICOMMAND\\fR] [\\fIARGS\\fR...]\n"
                 ".SH DESCRIPTION\n%s\n"
                 "\\fBzynet \\fICOMMAND\\fB \\-\\-help\\fR describes a command.\n"
                 ".SH OPTIONS\n",
                 ZYNET_VERSION, Roff(kDescription).c_str());
    ManOptions(stream, GlobalOptions());
    std::fprintf(stream, ".SH COMMANDS\n");
    for (const Command& command : Commands())
    {
        const std::string name = Roff(command.name);
        std::fprintf(stream, ".SS %s\n.B zynet %s\n", name.c_str(), name.c_str());
        if (command.synopsis[0])
            std::fprintf(stream, "%s\n", Roff(command.synopsis).c_str());
        std::fprintf(stream, ".PP\n%s\n", Roff(command.help).c_str());
        ManOptions(stream, command.options);
        if (command.notes[0])
            std::fprintf(stream, ".PP\n%s\n", Roff(command.notes).c_str());
    }
    std::fprintf(stream,
                 ".SH EXIT STATUS\n%s\n"
                 ".SH ENVIRONMENT\n"
                 ".TP\n.B ZYNET_CURL_LIBRARY\n"
                 "the curl library file that the transfer commands load (see \\fBcurl\\-version\\fR)\n",
                 Roff(kExitStatus).c_str());
}

void PrintBashCompletion(FILE* stream)
{
    std::string commands;
    for (const Command& command : Commands())
        commands += (commands.empty() ? "" : " ") + std::string(command.name);
    std::fprintf(stream,
                 "# bash completion for zynet. Made by `zynet --completion bash` from the tool's table of\n"
                 "# commands.\n"
                 "\n"
                 "# COMPREPLY from newline-separated words; \"filenames\" lets bash quote them as names.\n"
                 "_zynet_reply()\n"
                 "{\n"
                 "    local IFS=$'\\n'\n"
                 "    COMPREPLY=($1)\n"
                 "    [[ -n $2 ]] && compopt -o filenames 2>/dev/null\n"
                 "    return 0\n"
                 "}\n"
                 "\n"
                 "_zynet()\n"
                 "{\n"
                 "    local cur=${COMP_WORDS[COMP_CWORD]} prev= command= options= i\n"
                 "    COMPREPLY=()\n"
                 "    (( COMP_CWORD > 0 )) && prev=${COMP_WORDS[COMP_CWORD-1]}\n"
                 "    # The command is the first word that is not an option (the global options take\n"
                 "    # no value, --completion aside).\n"
                 "    for (( i = 1; i < COMP_CWORD; i++ )); do\n"
                 "        case ${COMP_WORDS[i]} in\n"
                 "            --completion) (( i++ )) ;;\n"
                 "            -*) ;;\n"
                 "            *) command=${COMP_WORDS[i]}; break ;;\n"
                 "        esac\n"
                 "    done\n"
                 "    local global='%s'\n"
                 "    case $command in\n"
                 "        '')\n"
                 "            case $prev in\n",
                 Words(GlobalOptions()).c_str());
    CompleteValues(stream, GlobalOptions(), "                ");
    std::fprintf(stream,
                 "            esac\n"
                 "            if [[ $cur == -* ]]; then\n"
                 "                _zynet_reply \"$(compgen -W \"$global\" -- \"$cur\")\"\n"
                 "            else\n"
                 "                _zynet_reply \"$(compgen -W '%s' -- \"$cur\")\"\n"
                 "            fi\n"
                 "            return ;;\n",
                 commands.c_str());
    for (const Command& command : Commands())
    {
        std::fprintf(stream, "        %s)\n", command.name);
        const bool values = std::any_of(command.options.begin(), command.options.end(),
                                        [](const Option& option) { return !option.value.empty(); });
        if (values)
        {
            std::fprintf(stream, "            case $prev in\n");
            CompleteValues(stream, command.options, "                ");
            std::fprintf(stream, "            esac\n");
        }
        std::fprintf(stream, "            options='%s' ;;\n", Words(command.options).c_str());
    }
    std::fprintf(stream,
                 "    esac\n"
                 "    # Otherwise bash's own completion (file names) takes over.\n"
                 "    [[ $cur == -* ]] && _zynet_reply \"$(compgen -W \"$options $global\" -- \"$cur\")\"\n"
                 "    return 0\n"
                 "}\n"
                 "complete -o default -F _zynet zynet\n");
}
}  // namespace zytool
