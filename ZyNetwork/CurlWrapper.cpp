// The run-time binding to libcurl: one process-wide loaded library, one
// cached function pointer per wrapper, fixed fallbacks when either is
// missing.

// The form functions and their codes are deprecated in curl's headers; the
// binding still offers them for the callers that build forms.
#define CURL_DISABLE_DEPRECATION
#include "ZyNetwork/CurlWrapper.h"

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <new>
#include <string>

#include "ZyNetwork/Internal/CurlWrapperInternal.h"
#include "ZyNetwork/Internal/OsCurl.h"

namespace CurlWrapper
{
namespace
{
const char kFailedToLoad[] = "Failed to load libcurl";
// Names the one curl library file to load, replacing the platform's rule.
const char kLibraryVariable[] = "ZYNET_CURL_LIBRARY";

std::atomic<unsigned> g_lookups{0};
// Set when the library is released at process exit. A wrapper called after
// that (from a later static destructor) returns its fallback instead of
// calling into an unloaded file.
std::atomic<bool> g_released{false};

typedef CURLcode (*GlobalInitFunction)(long);
typedef void (*GlobalCleanupFunction)();

std::string CurlLibraryFilePath()
{
    const char* path = std::getenv(kLibraryVariable);
    if (path && *path)
        return path;
    // Any function of this file tells which module holds the binding.
    return zy::os::DefaultCurlLibraryPath(reinterpret_cast<const void*>(&CurlLibraryFilePath));
}

CurlLibrary* CreateCurlLibrary()
{
    g_lookups.fetch_add(1, std::memory_order_relaxed);
    const std::string path = CurlLibraryFilePath();
    std::unique_ptr<CurlLibrary> holder(new (std::nothrow) CurlLibrary);
    if (!holder)
        return nullptr;
    // Failures show only through the wrappers' fallbacks.
    if (holder->library.Load(path.c_str(), false).IsError())
        return nullptr;
    zy::os::KeepCurlLibraryMapped(holder->library);
    GlobalInitFunction globalInit = nullptr;
    holder->library.GetFunction("curl_global_init", globalInit);
    if (!globalInit || globalInit(CURL_GLOBAL_ALL) != CURLE_OK)
        return nullptr;
    holder->globalInitDone = true;
    return holder.release();
}

bool IsReleased()
{
    return g_released.load(std::memory_order_acquire);
}

// Resolves a wrapper's symbol as its own function pointer type.
template <typename Function>
Function ResolveCurl(const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(loadCurlSymbol(name)));
}
}  // namespace

CurlLibrary::CurlLibrary() : library(true), globalInitDone(false) {}

CurlLibrary::~CurlLibrary()
{
    if (!globalInitDone)
        return;
    GlobalCleanupFunction globalCleanup = nullptr;
    library.GetFunction("curl_global_cleanup", globalCleanup);
    if (globalCleanup)
        globalCleanup();
    // `library` unloads the file as it is destroyed.
}

CurlLibrary* getCurlLibrary()
{
    // Thread-safe one-time initialisation: a thread that arrives while
    // another loads the library waits and then sees the finished holder.
    // Destroyed at process exit.
    struct ReleaseAtExit
    {
        std::unique_ptr<CurlLibrary> holder;
        explicit ReleaseAtExit(CurlLibrary* created) : holder(created) {}
        ~ReleaseAtExit()
        {
            g_released.store(true, std::memory_order_release);
            holder.reset();
        }
    };
    static ReleaseAtExit library(CreateCurlLibrary());
    return IsReleased() ? nullptr : library.holder.get();
}

void* loadCurlSymbol(const char* name)
{
    CurlLibrary* holder = getCurlLibrary();
    if (!holder)
        return nullptr;
    void* address = nullptr;
    // Only the address counts; a missing symbol is not reported.
    holder->library.GetAddress(name, address);
    return address;
}

unsigned curlLibraryLookups()
{
    return g_lookups.load(std::memory_order_relaxed);
}

// ---- easy interface -------------------------------------------------------
// Each wrapper resolves its symbol once, on its first call, into a
// function-local static; a symbol that was missing stays missing.

void* rk_curl_easy_init()
{
    typedef void* (*Function)();
    static const Function function = ResolveCurl<Function>("curl_easy_init");
    return function && !IsReleased() ? function() : nullptr;
}

void rk_curl_easy_cleanup(void* handle)
{
    typedef void (*Function)(void*);
    static const Function function = ResolveCurl<Function>("curl_easy_cleanup");
    if (function && !IsReleased())
        function(handle);
}

void rk_curl_easy_reset(void* handle)
{
    typedef void (*Function)(void*);
    static const Function function = ResolveCurl<Function>("curl_easy_reset");
    if (function && !IsReleased())
        function(handle);
}

CURLcode rk_curl_easy_perform(void* handle)
{
    typedef CURLcode (*Function)(void*);
    static const Function function = ResolveCurl<Function>("curl_easy_perform");
    return function && !IsReleased() ? function(handle) : CURLE_FAILED_INIT;
}

CURLcode rk_curl_easy_pause(void* handle, int bitmask)
{
    typedef CURLcode (*Function)(void*, int);
    static const Function function = ResolveCurl<Function>("curl_easy_pause");
    return function && !IsReleased() ? function(handle, bitmask) : CURLE_FAILED_INIT;
}

CURLcode rk_curl_easy_getinfo(void* handle, CURLINFO info, void* out)
{
    typedef CURLcode (*Function)(void*, CURLINFO, ...);
    static const Function function = ResolveCurl<Function>("curl_easy_getinfo");
    return function && !IsReleased() ? function(handle, info, out) : CURLE_FAILED_INIT;
}

// curl_easy_setopt is variadic: every overload calls it through the variadic
// type with the value as curl reads it for the option.
typedef CURLcode (*SetoptFunction)(void*, CURLoption, ...);

CURLcode rk_curl_easy_setopt(void* handle, CURLoption option, void* value)
{
    static const SetoptFunction function = ResolveCurl<SetoptFunction>("curl_easy_setopt");
    return function && !IsReleased() ? function(handle, option, value) : CURLE_FAILED_INIT;
}

CURLcode rk_curl_easy_setopt(void* handle, CURLoption option, long value)
{
    static const SetoptFunction function = ResolveCurl<SetoptFunction>("curl_easy_setopt");
    return function && !IsReleased() ? function(handle, option, value) : CURLE_FAILED_INIT;
}

CURLcode rk_curl_easy_setopt(void* handle, CURLoption option, int value)
{
    return rk_curl_easy_setopt(handle, option, static_cast<long>(value));
}

CURLcode rk_curl_easy_setopt(void* handle, CURLoption option, rk_curl_debug_callback callback)
{
    static const SetoptFunction function = ResolveCurl<SetoptFunction>("curl_easy_setopt");
    return function && !IsReleased() ? function(handle, option, callback) : CURLE_FAILED_INIT;
}

CURLcode rk_curl_easy_setopt(void* handle, CURLoption option, rk_curl_data_callback callback)
{
    static const SetoptFunction function = ResolveCurl<SetoptFunction>("curl_easy_setopt");
    return function && !IsReleased() ? function(handle, option, callback) : CURLE_FAILED_INIT;
}

CURLcode setSocketOptionFunction(void* handle, curl_sockopt_callback callback)
{
    static const SetoptFunction function = ResolveCurl<SetoptFunction>("curl_easy_setopt");
    return function && !IsReleased() ? function(handle, CURLOPT_SOCKOPTFUNCTION, callback) : CURLE_FAILED_INIT;
}

CURLcode rk_curl_easy_setopt(void* handle, CURLoption option, const char* value)
{
    static const SetoptFunction function = ResolveCurl<SetoptFunction>("curl_easy_setopt");
    return function && !IsReleased() ? function(handle, option, value) : CURLE_FAILED_INIT;
}

CURLcode rk_curl_easy_setopt(void* handle, CURLoption option, long long value)
{
    static const SetoptFunction function = ResolveCurl<SetoptFunction>("curl_easy_setopt");
    // curl reads the *_LARGE options as curl_off_t (64 bits on both targets).
    return function && !IsReleased() ? function(handle, option, static_cast<curl_off_t>(value)) : CURLE_FAILED_INIT;
}

const char* rk_curl_easy_strerror(CURLcode code)
{
    typedef const char* (*Function)(CURLcode);
    static const Function function = ResolveCurl<Function>("curl_easy_strerror");
    return function && !IsReleased() ? function(code) : kFailedToLoad;
}

char* rk_curl_easy_escape(void* handle, const char* text, int length)
{
    typedef char* (*Function)(void*, const char*, int);
    static const Function function = ResolveCurl<Function>("curl_easy_escape");
    return function && !IsReleased() ? function(handle, text, length) : nullptr;
}

char* rk_curl_easy_unescape(void* handle, const char* text, int length, int* outLength)
{
    typedef char* (*Function)(void*, const char*, int, int*);
    static const Function function = ResolveCurl<Function>("curl_easy_unescape");
    return function && !IsReleased() ? function(handle, text, length, outLength) : nullptr;
}

void rk_curl_free(void* pointer)
{
    typedef void (*Function)(void*);
    static const Function function = ResolveCurl<Function>("curl_free");
    if (function && !IsReleased())
        function(pointer);
}

// ---- forms ----------------------------------------------------------------

typedef CURLFORMcode (*FormaddFunction)(curl_httppost**, curl_httppost**, ...);

// The overloads below differ only in the option list they pass on.
template <typename... Options>
CURLFORMcode Formadd(curl_httppost** first, curl_httppost** last, Options... options)
{
    static const FormaddFunction function = ResolveCurl<FormaddFunction>("curl_formadd");
    if (!function || IsReleased())
        return CURL_FORMADD_NULL;
    return function(first, last, options...);
}

CURLFORMcode rk_curl_formadd(curl_httppost** first, curl_httppost** last, CURLformoption option1,
                             curl_slist* value1, CURLformoption option2, const char* value2,
                             CURLformoption option3, const char* value3, CURLformoption end)
{
    return Formadd(first, last, option1, value1, option2, value2, option3, value3, end);
}

CURLFORMcode rk_curl_formadd(curl_httppost** first, curl_httppost** last, CURLformoption option1,
                             const char* value1, CURLformoption option2, const char* value2,
                             CURLformoption option3, const char* value3, CURLformoption end)
{
    return Formadd(first, last, option1, value1, option2, value2, option3, value3, end);
}

CURLFORMcode rk_curl_formadd(curl_httppost** first, curl_httppost** last, CURLformoption option1,
                             const char* value1, CURLformoption option2, const char* value2, CURLformoption end)
{
    return Formadd(first, last, option1, value1, option2, value2, end);
}

CURLFORMcode rk_curl_formadd(curl_httppost** first, curl_httppost** last, CURLformoption option1,
                             const char* value1, CURLformoption option2, const char* value2,
                             CURLformoption option3, void* value3, CURLformoption option4, long value4,
                             CURLformoption end)
{
    return Formadd(first, last, option1, value1, option2, value2, option3, value3, option4, value4, end);
}

void rk_curl_formfree(curl_httppost* form)
{
    typedef void (*Function)(curl_httppost*);
    static const Function function = ResolveCurl<Function>("curl_formfree");
    if (function && !IsReleased())
        function(form);
}

long rk_curl_getdate(char* text, long* unused)
{
    // curl's own signature; its second argument is unused by curl and is
    // passed on as given.
    typedef time_t (*Function)(const char*, const void*);
    static const Function function = ResolveCurl<Function>("curl_getdate");
    return function && !IsReleased() ? static_cast<long>(function(text, unused)) : -1;
}

// ---- lists ----------------------------------------------------------------

curl_slist* rk_curl_slist_append(curl_slist* list, const char* text)
{
    typedef curl_slist* (*Function)(curl_slist*, const char*);
    static const Function function = ResolveCurl<Function>("curl_slist_append");
    return function && !IsReleased() ? function(list, text) : nullptr;
}

void rk_curl_slist_free_all(curl_slist* list)
{
    typedef void (*Function)(curl_slist*);
    static const Function function = ResolveCurl<Function>("curl_slist_free_all");
    if (function && !IsReleased())
        function(list);
}

// ---- multi interface ------------------------------------------------------

void* rk_curl_multi_init()
{
    typedef void* (*Function)();
    static const Function function = ResolveCurl<Function>("curl_multi_init");
    return function && !IsReleased() ? function() : nullptr;
}

CURLMcode rk_curl_multi_add_handle(void* multi, void* easy)
{
    typedef CURLMcode (*Function)(void*, void*);
    static const Function function = ResolveCurl<Function>("curl_multi_add_handle");
    return function && !IsReleased() ? function(multi, easy) : CURLM_BAD_HANDLE;
}

CURLMcode rk_curl_multi_remove_handle(void* multi, void* easy)
{
    typedef CURLMcode (*Function)(void*, void*);
    static const Function function = ResolveCurl<Function>("curl_multi_remove_handle");
    return function && !IsReleased() ? function(multi, easy) : CURLM_BAD_HANDLE;
}

CURLMcode rk_curl_multi_perform(void* multi, int* running)
{
    typedef CURLMcode (*Function)(void*, int*);
    static const Function function = ResolveCurl<Function>("curl_multi_perform");
    return function && !IsReleased() ? function(multi, running) : CURLM_BAD_HANDLE;
}

CURLMcode rk_curl_multi_fdset(void* multi, fd_set* read, fd_set* write, fd_set* except, int* maxFd)
{
    typedef CURLMcode (*Function)(void*, fd_set*, fd_set*, fd_set*, int*);
    static const Function function = ResolveCurl<Function>("curl_multi_fdset");
    return function && !IsReleased() ? function(multi, read, write, except, maxFd) : CURLM_BAD_HANDLE;
}

CURLMcode rk_curl_multi_timeout(void* multi, long* milliseconds)
{
    typedef CURLMcode (*Function)(void*, long*);
    static const Function function = ResolveCurl<Function>("curl_multi_timeout");
    return function && !IsReleased() ? function(multi, milliseconds) : CURLM_BAD_HANDLE;
}

// ---- version and global state ---------------------------------------------

const char* rk_curl_version()
{
    typedef const char* (*Function)();
    static const Function function = ResolveCurl<Function>("curl_version");
    return function && !IsReleased() ? function() : kFailedToLoad;
}

curl_version_info_data* rk_curl_version_info(CURLversion version)
{
    typedef curl_version_info_data* (*Function)(CURLversion);
    static const Function function = ResolveCurl<Function>("curl_version_info");
    return function && !IsReleased() ? function(version) : nullptr;
}

CURLcode rk_curl_global_init(long flags)
{
    // curl's global initialisation runs when the library is loaded.
    return CURLE_OK;
}

void rk_curl_global_cleanup()
{
    // curl's global clean-up runs at process exit.
}

const char* rk_curl_library_path()
{
    CurlLibrary* holder = getCurlLibrary();
    return holder ? holder->library.Path().c_str() : "";
}
}  // namespace CurlWrapper
