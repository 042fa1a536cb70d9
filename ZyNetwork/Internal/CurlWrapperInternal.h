// Internals of the curl binding (ZyNetwork/CurlWrapper.cpp), visible to the
// unit tests through the static library. Internal: not installed, not
// exported.
#pragma once

#include <curl/curl.h>

#include "ZyUtils/ZyLibrary.h"

namespace CurlWrapper
{
// The loaded curl library file. One per process, created by the first call
// of any wrapper and destroyed at process exit: then curl_global_cleanup runs
// (when curl_global_init had succeeded) and the file is unloaded.
struct CurlLibrary
{
    CurlLibrary();
    ~CurlLibrary();
    CurlLibrary(const CurlLibrary&) = delete;
    CurlLibrary& operator=(const CurlLibrary&) = delete;

    CZyLibrary library;
    bool globalInitDone;  // set once curl_global_init has returned 0
};

// The process's curl library, loading it on the first call; null when the
// file could not be loaded or curl's global initialisation failed (decided
// once, never retried).
CurlLibrary* getCurlLibrary();
// The address of a curl symbol, or null when the library or the symbol is
// missing.
void* loadCurlSymbol(const char* name);
// Sets CURLOPT_SOCKOPTFUNCTION, which takes a function pointer that the
// exported setopt overloads have no type for.
CURLcode setSocketOptionFunction(void* handle, curl_sockopt_callback callback);
// How many times this process has looked for the curl library file (0 before
// the first wrapper call, then 1 for good). Does not load anything.
unsigned curlLibraryLookups();
}  // namespace CurlWrapper
