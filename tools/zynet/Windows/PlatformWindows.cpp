// The tool's platform facts on Windows: %TMPDIR% when set, else %TEMP%, '\',
// MoveFileExW and the console's Ctrl-C handler.
#include <windows.h>

#include <shellapi.h>

#include <cstdlib>
#include <string>

#include "Platform.h"

namespace zytool
{
std::string TempDirectory()
{
    const char* dir = std::getenv("TMPDIR");
    if (dir == nullptr || *dir == '\0')
        dir = std::getenv("TEMP");
    return dir != nullptr ? dir : "";
}

char PathSeparator()
{
    return '\\';
}

namespace
{
std::wstring Wide(const std::string& text)
{
    const int length = MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, nullptr, 0);
    if (length <= 0)
        return std::wstring();
    std::wstring wide(static_cast<size_t>(length), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, &wide[0], length);
    wide.resize(static_cast<size_t>(length - 1));
    return wide;
}

std::string Utf8(const wchar_t* text)
{
    const int length = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (length <= 0)
        return std::string();
    std::string narrow(static_cast<size_t>(length), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, &narrow[0], length, nullptr, nullptr);
    narrow.resize(static_cast<size_t>(length - 1));
    return narrow;
}

std::string SystemMessage(DWORD code)
{
    char* text = nullptr;
    const DWORD length = FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                                            FORMAT_MESSAGE_IGNORE_INSERTS,
                                        nullptr, code, 0, reinterpret_cast<char*>(&text), 0, nullptr);
    std::string message = length > 0 && text ? std::string(text, length) : "error " + std::to_string(code);
    if (text)
        LocalFree(text);
    while (!message.empty() && (message.back() == '\n' || message.back() == '\r' || message.back() == '.'))
        message.pop_back();
    return message;
}

// The file to remove on Ctrl-C; the handler runs on a thread of its own.
wchar_t g_interruptPath[MAX_PATH * 4];
volatile LONG g_interruptArmed = 0;

BOOL WINAPI RemoveOnControl(DWORD)
{
    if (InterlockedCompareExchange(&g_interruptArmed, 0, 0))
        DeleteFileW(g_interruptPath);
    // Ends the process with the status Windows' own handler gives an
    // interrupted program, so that a script sees the failure (Wine's own
    // handler ends it with 0).
    ExitProcess(STATUS_CONTROL_C_EXIT);
    return TRUE;
}
}  // namespace

std::vector<std::string> CommandLineArgs(int argc, char** argv)
{
    int count = 0;
    LPWSTR* wide = CommandLineToArgvW(GetCommandLineW(), &count);
    if (wide == nullptr || count != argc)
    {
        // Not the command line main() was given: keep what it was given.
        if (wide != nullptr)
            LocalFree(wide);
        return std::vector<std::string>(argv, argv + argc);
    }
    std::vector<std::string> args;
    for (int i = 0; i < count; ++i)
        args.push_back(Utf8(wide[i]));
    LocalFree(wide);
    return args;
}

bool IsDirectory(const std::string& path)
{
    const DWORD attributes = GetFileAttributesW(Wide(path).c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool MoveOver(const std::string& from, const std::string& to, std::string& why)
{
    if (MoveFileExW(Wide(from).c_str(), Wide(to).c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED))
        return true;
    why = SystemMessage(GetLastError());
    return false;
}

void RemoveOnInterrupt(const std::string& path)
{
    const std::wstring wide = Wide(path);
    if (wide.empty() || wide.size() >= sizeof g_interruptPath / sizeof g_interruptPath[0])
        return;
    InterlockedExchange(&g_interruptArmed, 0);
    wide.copy(g_interruptPath, wide.size());
    g_interruptPath[wide.size()] = L'\0';
    InterlockedExchange(&g_interruptArmed, 1);
    static bool installed = false;
    if (!installed)
        installed = SetConsoleCtrlHandler(&RemoveOnControl, TRUE) != FALSE;
}

void ForgetOnInterrupt()
{
    InterlockedExchange(&g_interruptArmed, 0);
}
const char* MissingCurlAdvice()
{
    return "RKCurl.dll belongs beside ZyNetwork.dll, or name a libcurl file in ZYNET_CURL_LIBRARY";
}
}  // namespace zytool
