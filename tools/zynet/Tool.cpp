#include "Tool.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "ZyNetwork/ZyIPAddr.h"
#include "ZyUtils/ZyString.h"

namespace zytool
{
Output::Output(const std::string& command, bool json, bool verbose)
    : m_command(command), m_json(json), m_verbose(verbose), m_result(Json::object())
{
    m_result["command"] = command;
}

void Output::Line(const char* format, ...)
{
    if (m_json)
        return;
    va_list args;
    va_start(args, format);
    std::string text = FXString::FormatArgList(format, args);
    va_end(args);
    std::fputs(text.c_str(), stdout);
    std::fputc('\n', stdout);
}

Json ErrorJson(const CZyError& error)
{
    Json json = Json::object();
    // The code as the library documents it: an unsigned 32-bit value.
    json["code"] = static_cast<uint32_t>(error.GetErrorCode());
    json["kind"] = ErrorKindName(error.GetErrorKind());
    json["message"] = error.GetErrorMessage();
    Json stack = Json::array();
    std::vector<std::string> lines;
    FXString::Split(error.AsString(), "\n", lines, 0);
    for (const std::string& line : lines)
    {
        if (!line.empty())
            stack.push_back(line);
    }
    json["stack"] = stack;
    return json;
}

int Output::Fail(const std::string& what, const CZyError& error, const std::string& cause)
{
    return Fail(m_result, what, error, cause);
}

int Output::Fail(const std::string& what)
{
    return Fail(m_result, what);
}

int Output::Fail(Json& item, const std::string& what, const CZyError& error, const std::string& cause)
{
    const std::string because = cause.empty() ? error.GetErrorMessage() : cause;
    if (m_json)
    {
        Json failure = ErrorJson(error);
        failure["what"] = what;
        failure["cause"] = because;
        item["error"] = failure;
        return kExitFailure;
    }
    std::string text = "zynet " + m_command + ": " + what + (because.empty() ? "" : ": " + because) + "\n";
    if (m_verbose)
    {
        text += error.AsString();
        if (!text.empty() && text.back() != '\n')
            text += '\n';
    }
    std::fflush(stdout);
    std::fputs(Scrub(text).c_str(), stderr);
    return kExitFailure;
}

int Output::Fail(Json& item, const std::string& what)
{
    if (m_json)
    {
        Json failure = Json::object();
        failure["what"] = what;
        item["error"] = failure;
    }
    else
    {
        std::fflush(stdout);
        std::fputs(Scrub("zynet " + m_command + ": " + what + "\n").c_str(), stderr);
    }
    return kExitFailure;
}

void Output::AddSecret(const std::string& secret)
{
    // Shorter texts would mask ordinary words; they never reach the output
    // by construction either.
    if (secret.size() >= 3)
    {
        m_secrets.push_back(secret);
        // Its form inside a JSON string too.
        const std::string quoted = Json(secret).dump(-1, ' ', false, Json::error_handler_t::replace);
        m_secrets.push_back(quoted.substr(1, quoted.size() - 2));
    }
}

std::string Output::Scrub(std::string text) const
{
    for (const std::string& secret : m_secrets)
    {
        for (size_t at = text.find(secret); at != std::string::npos; at = text.find(secret, at + 3))
            text.replace(at, secret.size(), "***");
    }
    return text;
}

void Output::Finish(int exitCode)
{
    if (!m_json)
        return;
    m_result["ok"] = exitCode == kExitOk;
    std::string text = Scrub(JsonText(m_result));
    std::fputs(text.c_str(), stdout);
    std::fputc('\n', stdout);
}

namespace
{
bool Contains(const std::vector<std::string>& names, const std::string& name)
{
    for (const std::string& n : names)
    {
        if (n == name)
            return true;
    }
    return false;
}
}  // namespace

Args ParseArgs(const std::vector<std::string>& args, const std::vector<std::string>& boolFlags,
               const std::vector<std::string>& valueFlags, size_t minPositional, size_t maxPositional)
{
    Args parsed;
    bool optionsEnded = false;
    for (size_t i = 0; i < args.size(); ++i)
    {
        const std::string& arg = args[i];
        if (optionsEnded || arg.size() < 2 || arg[0] != '-')
        {
            parsed.positional.push_back(arg);
            continue;
        }
        if (arg == "--")
        {
            optionsEnded = true;
            continue;
        }
        if (Contains(boolFlags, arg))
        {
            parsed.flags.insert(arg);
            continue;
        }
        if (Contains(valueFlags, arg))
        {
            if (i + 1 >= args.size())
                throw UsageError("option " + arg + " needs a value");
            parsed.values[arg] = args[++i];
            continue;
        }
        // A short option with its value attached: -c3.
        if (arg[1] != '-' && arg.size() > 2 && Contains(valueFlags, arg.substr(0, 2)))
        {
            parsed.values[arg.substr(0, 2)] = arg.substr(2);
            continue;
        }
        throw UsageError("unknown option " + arg);
    }
    if (parsed.positional.size() < minPositional)
        throw UsageError("missing argument");
    if (parsed.positional.size() > maxPositional)
        throw UsageError("unexpected argument " + parsed.positional[maxPositional]);
    return parsed;
}

long long ParseInteger(const std::string& text, long long minimum, long long maximum, const char* what)
{
    const char* begin = text.c_str();
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(begin, &end, 10);
    const bool digitsOnly = !text.empty() && end == begin + text.size() && (text[0] == '-' || (text[0] >= '0' && text[0] <= '9'));
    if (!digitsOnly || errno == ERANGE || value < minimum || value > maximum)
    {
        throw UsageError(FXString::Format("%s must be a whole number from %lld to %lld, not '%s'", what, minimum,
                                          maximum, text.c_str()));
    }
    return value;
}

std::string AddressText(const CZyIPAddr& address)
{
    CZyString text;
    if (address.GetAddressString(text).IsError())
        return "?";
    return text.str();
}
}  // namespace zytool
