// The run-time binding to libcurl. The library never links libcurl: the first
// call of any wrapper loads the curl library file, runs curl's global
// initialisation once and resolves the one symbol that the wrapper stands
// for. A wrapper whose library or symbol is missing returns a fixed value of
// its own result type (null, 2 = CURLE_FAILED_INIT, 1 = CURLM_BAD_HANDLE,
// 3 = CURL_FORMADD_NULL, -1, or the text "Failed to load libcurl") instead of
// failing loudly.
//
// Which file is loaded, decided once per process:
// - the environment variable ZYNET_CURL_LIBRARY, when set and not empty,
//   names the one file to load; nothing else is tried;
// - Windows: "RKCurl.dll" in the directory of ZyNetwork.dll (the bare name
//   only when that directory cannot be found);
// - Linux: "libRKCurl.so" in the directory of libZyNetwork.so when such a
//   file exists there, otherwise the system's "libcurl.so.4".
//
// Types and constants are curl's own (curl/curl.h).
#pragma once

#include <curl/curl.h>

#include "ZyUtils/ZyExport.h"

namespace CurlWrapper
{
// curl's debug callback (CURLOPT_DEBUGFUNCTION).
typedef int (*rk_curl_debug_callback)(CURL* handle, curl_infotype type, char* data, size_t size, void* userData);
// curl's write, read and header callbacks (CURLOPT_WRITEFUNCTION,
// CURLOPT_READFUNCTION, CURLOPT_HEADERFUNCTION) share this shape.
typedef size_t (*rk_curl_data_callback)(char* buffer, size_t size, size_t count, void* userData);

// curl's easy interface: curl_easy_init (null when libcurl cannot be loaded),
// curl_easy_cleanup, curl_easy_reset, curl_easy_perform, curl_easy_pause and
// curl_easy_getinfo, with the same arguments and results.
// @{
ZYNET_API void* rk_curl_easy_init();
ZYNET_API void rk_curl_easy_cleanup(void* handle);
ZYNET_API void rk_curl_easy_reset(void* handle);
ZYNET_API CURLcode rk_curl_easy_perform(void* handle);
ZYNET_API CURLcode rk_curl_easy_pause(void* handle, int bitmask);
ZYNET_API CURLcode rk_curl_easy_getinfo(void* handle, CURLINFO info, void* out);
// @}

// curl_easy_setopt: one overload per kind of value curl takes.
// @{
ZYNET_API CURLcode rk_curl_easy_setopt(void* handle, CURLoption option, void* value);
// `long` is what curl expects for numeric options: 32 bits on Windows, 64 on
// Linux x86-64.
ZYNET_API CURLcode rk_curl_easy_setopt(void* handle, CURLoption option, long value);
// Forwards to the `long` overload.
ZYNET_API CURLcode rk_curl_easy_setopt(void* handle, CURLoption option, int value);
ZYNET_API CURLcode rk_curl_easy_setopt(void* handle, CURLoption option, rk_curl_debug_callback callback);
ZYNET_API CURLcode rk_curl_easy_setopt(void* handle, CURLoption option, rk_curl_data_callback callback);
ZYNET_API CURLcode rk_curl_easy_setopt(void* handle, CURLoption option, const char* value);
// 64-bit values (the *_LARGE options). Declared as long long so that it is
// its own overload where curl_off_t and long are the same type (Linux).
ZYNET_API CURLcode rk_curl_easy_setopt(void* handle, CURLoption option, long long value);
// @}

// curl_easy_strerror, curl_easy_escape and curl_easy_unescape (free their
// results with rk_curl_free), and curl_free.
// @{
ZYNET_API const char* rk_curl_easy_strerror(CURLcode code);
ZYNET_API char* rk_curl_easy_escape(void* handle, const char* text, int length);
ZYNET_API char* rk_curl_easy_unescape(void* handle, const char* text, int length, int* outLength);
ZYNET_API void rk_curl_free(void* pointer);
// @}

// The four shapes of curl_formadd the library uses, each closed by a final
// option (CURLFORM_END).
// @{
ZYNET_API CURLFORMcode rk_curl_formadd(curl_httppost** first, curl_httppost** last, CURLformoption option1,
                                       curl_slist* value1, CURLformoption option2, const char* value2,
                                       CURLformoption option3, const char* value3, CURLformoption end);
ZYNET_API CURLFORMcode rk_curl_formadd(curl_httppost** first, curl_httppost** last, CURLformoption option1,
                                       const char* value1, CURLformoption option2, const char* value2,
                                       CURLformoption option3, const char* value3, CURLformoption end);
ZYNET_API CURLFORMcode rk_curl_formadd(curl_httppost** first, curl_httppost** last, CURLformoption option1,
                                       const char* value1, CURLformoption option2, const char* value2,
                                       CURLformoption end);
ZYNET_API CURLFORMcode rk_curl_formadd(curl_httppost** first, curl_httppost** last, CURLformoption option1,
                                       const char* value1, CURLformoption option2, const char* value2,
                                       CURLformoption option3, void* value3, CURLformoption option4, long value4,
                                       CURLformoption end);
// @}
// curl_formfree: frees a form built by rk_curl_formadd.
ZYNET_API void rk_curl_formfree(curl_httppost* form);
// curl_getdate: the date text as seconds since 1970, -1 when it does not parse.
ZYNET_API long rk_curl_getdate(char* text, long* unused);

// curl_slist_append (null on failure, also when libcurl cannot be loaded) and
// curl_slist_free_all.
// @{
ZYNET_API curl_slist* rk_curl_slist_append(curl_slist* list, const char* text);
ZYNET_API void rk_curl_slist_free_all(curl_slist* list);
// @}

// curl's multi interface: curl_multi_init, curl_multi_add_handle,
// curl_multi_remove_handle, curl_multi_perform, curl_multi_fdset and
// curl_multi_timeout.
// @{
ZYNET_API void* rk_curl_multi_init();
ZYNET_API CURLMcode rk_curl_multi_add_handle(void* multi, void* easy);
ZYNET_API CURLMcode rk_curl_multi_remove_handle(void* multi, void* easy);
ZYNET_API CURLMcode rk_curl_multi_perform(void* multi, int* running);
ZYNET_API CURLMcode rk_curl_multi_fdset(void* multi, fd_set* read, fd_set* write, fd_set* except, int* maxFd);
ZYNET_API CURLMcode rk_curl_multi_timeout(void* multi, long* milliseconds);
// @}

// curl_version ("Failed to load libcurl" when it cannot be loaded) and
// curl_version_info (null then).
// @{
ZYNET_API const char* rk_curl_version();
ZYNET_API curl_version_info_data* rk_curl_version_info(CURLversion version);
// @}

// Deliberately empty: curl's real global initialisation and clean-up belong
// to the loaded library's life (first use, process exit), so callers may
// call these freely. rk_curl_global_init always returns 0.
// @{
ZYNET_API CURLcode rk_curl_global_init(long flags);
ZYNET_API void rk_curl_global_cleanup();
// @}

// The path of the curl library file that was loaded, or "" when none was
// (loads it on first use like any wrapper). For diagnostics.
ZYNET_API const char* rk_curl_library_path();
}  // namespace CurlWrapper
