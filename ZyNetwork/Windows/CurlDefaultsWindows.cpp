// Default CA bundle on Windows: "curl-ca-bundle.crt" in the current
// directory, written with a backslash. SSH file paths in a form that
// libssh2's fopen (ANSI code page) opens.
#include <windows.h>

#include "ZyNetwork/Internal/OsCurl.h"
#include "ZyUtils/ZyString.h"

namespace zy::os
{
namespace
{
// `wide` in the ANSI code page, "" when a character does not fit.
std::string ToAnsi(const std::wstring& wide)
{
    BOOL lossy = FALSE;
    const int size = WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide.c_str(), -1, nullptr, 0, nullptr, &lossy);
    if (size <= 1 || lossy)
        return std::string();
    std::string ansi(static_cast<size_t>(size), '\0');
    if (WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide.c_str(), -1, &ansi[0], size, nullptr, &lossy) != size ||
        lossy)
        return std::string();
    ansi.resize(static_cast<size_t>(size - 1));
    return ansi;
}
}  // namespace

bool DefaultCABundle(std::string& path)
{
    path = std::string(".") + "\\" + "curl-ca-bundle.crt";
    return true;
}

std::string SshFilePath(const std::string& utf8Path)
{
    bool ascii = true;
    for (unsigned char c : utf8Path)
        ascii = ascii && c < 0x80;
    if (ascii || GetACP() == CP_UTF8)
        return utf8Path;
    const std::wstring wide = FXString::ToWstring(utf8Path);
    std::string ansi = ToAnsi(wide);
    if (!ansi.empty())
        return ansi;
    const DWORD size = GetShortPathNameW(wide.c_str(), nullptr, 0);
    if (size > 0)
    {
        std::wstring shortName(size, L'\0');
        const DWORD length = GetShortPathNameW(wide.c_str(), &shortName[0], size);
        if (length > 0 && length < size)
        {
            shortName.resize(length);
            ansi = ToAnsi(shortName);
            if (!ansi.empty())
                return ansi;
        }
    }
    return utf8Path;
}

void TuneTransferSocket(curl_socket_t /*socket*/)
{
}
}  // namespace zy::os
