// CZyHTTP2's proxy look-ups: the global WinHTTP setting, the current
// user's, and the proxy for one URL.
#include "ZyNetwork/ZyHTTP2.h"

#include <windows.h>
#include <winhttp.h>

#include <vector>

#include "ZyNetwork/WinClients/ZyHTTP2Handles.h"
#include "ZyUtils/Internal/ErrorCodes.h"
#include "ZyUtils/LogWriter.h"
#include "ZyUtils/ZyFile.h"
#include "ZyUtils/ZyString.h"
#include "ZyUtils/ZyTime.h"

using namespace zy::http;

namespace
{
// Takes a string that WinHTTP allocated, frees it and returns it narrow.
std::string TakeGlobalString(LPWSTR text)
{
    if (!text)
        return std::string();
    std::string narrow = FXString::ToString(text);
    GlobalFree(text);
    return narrow;
}

// Runs one of WinHTTP's proxy settings queries into `config` and takes its
// proxy and bypass lists; a failure is the thread's last error with
// `failure` as its message, and leaves both lists as they were.
template <typename Query, typename Config>
CZyError QueryProxySettings(Query query, Config& config, const FXCodeLocation& location, const char* failure,
                            std::string& proxy, std::string& bypass)
{
    ZeroMemory(&config, sizeof(config));
    if (!query(&config))
        return FXErrorUtil::ErrorWin32(location, GetLastError(), "%s", failure);
    proxy = TakeGlobalString(config.lpszProxy);
    bypass = TakeGlobalString(config.lpszProxyBypass);
    return CZyError::Success();
}

}  // namespace

namespace
{
// Locations name the class's file, wherever its code stands.
const char kZyFile[] = "ZyNetwork/ZyHTTP2";
}  // namespace

CZyError CZyHTTP2::GetGlobalProxyConfiguration(std::string& proxy, std::string& bypass)
{
    WINHTTP_PROXY_INFO info;
    return QueryProxySettings(WinHttpGetDefaultProxyConfiguration, info,
                              ZY_LOC("CZyHTTP2::GetGlobalProxyConfiguration"),
                              "Failed to global HTTP proxy configuration", proxy, bypass);
}

CZyError CZyHTTP2::GetProxyConfigurationForCurrentUser(std::string& proxy, std::string& bypass,
                                                       std::string& autoConfigUrl, bool& autoDetect)
{
    WINHTTP_CURRENT_USER_IE_PROXY_CONFIG config;
    CZyError error = QueryProxySettings(WinHttpGetIEProxyConfigForCurrentUser, config,
                                        ZY_LOC("CZyHTTP2::GetProxyConfigurationForCurrentUser"),
                                        "Failed to get HTTP proxy configuration for the current user", proxy, bypass);
    if (error.IsError())
        return error;
    autoConfigUrl = TakeGlobalString(config.lpszAutoConfigUrl);
    autoDetect = config.fAutoDetect != FALSE;
    return CZyError::Success();
}

CZyError CZyHTTP2::GetProxyForUrl(const std::string& url, const std::string& autoConfigUrl, std::string& proxy,
                                  std::string& bypass)
{
    proxy.clear();
    bypass.clear();
    HINTERNET session = WinHttpOpen(L"HTTPProxyCheck", WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME,
                                    WINHTTP_NO_PROXY_BYPASS, 0);
    if (!session)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::GetProxyForUrl"), GetLastError(),
                                       "Failed to open WinHttp Session");

    std::wstring wideUrl = FXString::ToWstring(url);
    std::wstring wideConfigUrl = FXString::ToWstring(autoConfigUrl);
    WINHTTP_AUTOPROXY_OPTIONS options;
    ZeroMemory(&options, sizeof(options));
    if (autoConfigUrl.empty())
    {
        options.dwFlags = WINHTTP_AUTOPROXY_AUTO_DETECT;
        options.dwAutoDetectFlags = WINHTTP_AUTO_DETECT_TYPE_DHCP | WINHTTP_AUTO_DETECT_TYPE_DNS_A;
    }
    else
    {
        options.dwFlags = WINHTTP_AUTOPROXY_CONFIG_URL;
        options.lpszAutoConfigUrl = wideConfigUrl.c_str();
    }
    options.fAutoLogonIfChallenged = FALSE;

    WINHTTP_PROXY_INFO info;
    ZeroMemory(&info, sizeof(info));
    BOOL ok = WinHttpGetProxyForUrl(session, wideUrl.c_str(), &options, &info);
    if (!ok && GetLastError() == ERROR_WINHTTP_LOGIN_FAILURE)
    {
        options.fAutoLogonIfChallenged = TRUE;
        ok = WinHttpGetProxyForUrl(session, wideUrl.c_str(), &options, &info);
    }
    if (!ok)
    {
        DWORD code = GetLastError();
        WinHttpCloseHandle(session);
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyHTTP2::GetProxyForUrl"), code, "Failed to get proxy for URL [%s]",
                                       url.c_str());
    }
    proxy = TakeGlobalString(info.lpszProxy);
    bypass = TakeGlobalString(info.lpszProxyBypass);
    WinHttpCloseHandle(session);
    return CZyError::Success();
}
