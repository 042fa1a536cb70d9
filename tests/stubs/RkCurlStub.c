/* A stand-in for the curl library file, for the binding's tests. It exports
 * the curl functions that the binding resolves except "curl_easy_pause", counts
 * the calls it receives and records the values that reached it, which the
 * tests read through the rkstub_* functions. */
#define CURL_STATICLIB
#define CURL_DISABLE_DEPRECATION
#define CURL_DISABLE_TYPECHECK /* the stub defines the functions that the checks wrap */
#include <curl/curl.h>

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#if defined(_WIN32)
#define STUB_EXPORT __declspec(dllexport)
#else
#define STUB_EXPORT __attribute__((visibility("default")))
#endif

/* What the stub's handles point at: one easy and one multi handle. */
static int g_easyHandle;
static int g_multiHandle;

static const char* const g_names[] = {
    "curl_global_init", "curl_global_cleanup", "curl_easy_init", "curl_easy_cleanup", "curl_easy_reset",
    "curl_easy_perform", "curl_easy_getinfo", "curl_easy_setopt", "curl_easy_strerror", "curl_easy_escape",
    "curl_easy_unescape", "curl_free", "curl_formadd", "curl_formfree", "curl_getdate", "curl_slist_append",
    "curl_slist_free_all", "curl_multi_init", "curl_multi_add_handle", "curl_multi_remove_handle",
    "curl_multi_perform", "curl_multi_fdset", "curl_multi_timeout", "curl_version", "curl_version_info"};
#define STUB_FUNCTIONS (sizeof(g_names) / sizeof(g_names[0]))
static long g_calls[STUB_FUNCTIONS]; /* updated atomically: threads call in at once */

static long g_globalInitFlags = -1;
static long g_lastOption = -1;
static long g_lastLong = -1;
static curl_off_t g_lastOffset = -1;
static void* g_lastPointer = NULL;
static char g_formTrace[512];

static void Count(const char* name)
{
    size_t i;
    for (i = 0; i < STUB_FUNCTIONS; ++i)
    {
        if (strcmp(g_names[i], name) == 0)
        {
            __atomic_add_fetch(&g_calls[i], 1, __ATOMIC_SEQ_CST);
            return;
        }
    }
}

/* ---- queries for the tests ---- */

STUB_EXPORT long rkstub_calls(const char* name)
{
    size_t i;
    for (i = 0; i < STUB_FUNCTIONS; ++i)
        if (strcmp(g_names[i], name) == 0)
            return __atomic_load_n(&g_calls[i], __ATOMIC_SEQ_CST);
    return -1;
}
STUB_EXPORT void* rkstub_easy_handle(void) { return &g_easyHandle; }
STUB_EXPORT long rkstub_global_init_flags(void) { return g_globalInitFlags; }
STUB_EXPORT long rkstub_last_option(void) { return g_lastOption; }
STUB_EXPORT long rkstub_last_long(void) { return g_lastLong; }
STUB_EXPORT long long rkstub_last_offset(void) { return (long long)g_lastOffset; }
STUB_EXPORT void* rkstub_last_pointer(void) { return g_lastPointer; }
STUB_EXPORT const char* rkstub_form_trace(void) { return g_formTrace; }

/* ---- the curl functions ---- */

STUB_EXPORT CURLcode curl_global_init(long flags)
{
    Count("curl_global_init");
    g_globalInitFlags = flags;
    return CURLE_OK;
}

STUB_EXPORT void curl_global_cleanup(void) { Count("curl_global_cleanup"); }

STUB_EXPORT CURL* curl_easy_init(void)
{
    Count("curl_easy_init");
    return (CURL*)&g_easyHandle;
}

STUB_EXPORT void curl_easy_cleanup(CURL* handle) { Count("curl_easy_cleanup"); }
STUB_EXPORT void curl_easy_reset(CURL* handle) { Count("curl_easy_reset"); }

STUB_EXPORT CURLcode curl_easy_perform(CURL* handle)
{
    Count("curl_easy_perform");
    return handle == (CURL*)&g_easyHandle ? CURLE_OK : CURLE_BAD_FUNCTION_ARGUMENT;
}

STUB_EXPORT CURLcode curl_easy_getinfo(CURL* handle, CURLINFO info, ...)
{
    va_list args;
    Count("curl_easy_getinfo");
    if (info != CURLINFO_RESPONSE_CODE)
        return CURLE_UNKNOWN_OPTION;
    va_start(args, info);
    *va_arg(args, long*) = 299;
    va_end(args);
    return CURLE_OK;
}

/* Reads the value as curl does: by the option's type range. */
STUB_EXPORT CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...)
{
    va_list args;
    Count("curl_easy_setopt");
    g_lastOption = (long)option;
    va_start(args, option);
    if (option < CURLOPTTYPE_OBJECTPOINT)
        g_lastLong = va_arg(args, long);
    else if (option < CURLOPTTYPE_OFF_T)
        g_lastPointer = va_arg(args, void*);
    else
        g_lastOffset = va_arg(args, curl_off_t);
    va_end(args);
    return CURLE_OK;
}

STUB_EXPORT const char* curl_easy_strerror(CURLcode code)
{
    Count("curl_easy_strerror");
    return "stub strerror";
}

STUB_EXPORT char* curl_easy_escape(CURL* handle, const char* text, int length)
{
    char* copy;
    Count("curl_easy_escape");
    copy = (char*)malloc(strlen(text) + 1);
    if (copy)
        strcpy(copy, text);
    return copy;
}

STUB_EXPORT char* curl_easy_unescape(CURL* handle, const char* text, int length, int* outLength)
{
    Count("curl_easy_unescape");
    if (outLength)
        *outLength = length;
    return NULL;
}

STUB_EXPORT void curl_free(void* pointer)
{
    Count("curl_free");
    free(pointer);
}

/* Records each option and its value as "NUMBER=VALUE;" until CURLFORM_END. */
STUB_EXPORT CURLFORMcode curl_formadd(struct curl_httppost** first, struct curl_httppost** last, ...)
{
    va_list args;
    size_t used = 0;
    Count("curl_formadd");
    g_formTrace[0] = '\0';
    va_start(args, last);
    for (;;)
    {
        CURLformoption option = (CURLformoption)va_arg(args, int);
        char value[160];
        if (option == CURLFORM_END)
            break;
        switch (option)
        {
        case CURLFORM_CONTENTHEADER:
            snprintf(value, sizeof(value), "%s", va_arg(args, struct curl_slist*)->data);
            break;
        case CURLFORM_BUFFERPTR:
            snprintf(value, sizeof(value), "%.4s", (const char*)va_arg(args, void*));
            break;
        case CURLFORM_BUFFERLENGTH:
            snprintf(value, sizeof(value), "%ld", va_arg(args, long));
            break;
        default:
            snprintf(value, sizeof(value), "%s", va_arg(args, const char*));
            break;
        }
        used += (size_t)snprintf(g_formTrace + used, sizeof(g_formTrace) - used, "%d=%s;", (int)option, value);
        if (used >= sizeof(g_formTrace))
            break;
    }
    va_end(args);
    return CURL_FORMADD_OK;
}

STUB_EXPORT void curl_formfree(struct curl_httppost* form) { Count("curl_formfree"); }

STUB_EXPORT time_t curl_getdate(const char* text, const time_t* unused)
{
    Count("curl_getdate");
    return (time_t)strlen(text);
}

STUB_EXPORT struct curl_slist* curl_slist_append(struct curl_slist* list, const char* text)
{
    struct curl_slist* item;
    Count("curl_slist_append");
    item = (struct curl_slist*)calloc(1, sizeof(*item));
    if (!item)
        return NULL;
    item->data = (char*)malloc(strlen(text) + 1);
    if (!item->data)
    {
        free(item);
        return NULL;
    }
    strcpy(item->data, text);
    if (!list)
        return item;
    {
        struct curl_slist* tail = list;
        while (tail->next)
            tail = tail->next;
        tail->next = item;
    }
    return list;
}

STUB_EXPORT void curl_slist_free_all(struct curl_slist* list)
{
    Count("curl_slist_free_all");
    while (list)
    {
        struct curl_slist* next = list->next;
        free(list->data);
        free(list);
        list = next;
    }
}

STUB_EXPORT CURLM* curl_multi_init(void)
{
    Count("curl_multi_init");
    return (CURLM*)&g_multiHandle;
}

STUB_EXPORT CURLMcode curl_multi_add_handle(CURLM* multi, CURL* easy)
{
    Count("curl_multi_add_handle");
    return CURLM_OK;
}

STUB_EXPORT CURLMcode curl_multi_remove_handle(CURLM* multi, CURL* easy)
{
    Count("curl_multi_remove_handle");
    return CURLM_OK;
}

STUB_EXPORT CURLMcode curl_multi_perform(CURLM* multi, int* running)
{
    Count("curl_multi_perform");
    *running = 0;
    return CURLM_OK;
}

STUB_EXPORT CURLMcode curl_multi_fdset(CURLM* multi, fd_set* read, fd_set* write, fd_set* except, int* maxFd)
{
    Count("curl_multi_fdset");
    *maxFd = -1;
    return CURLM_OK;
}

STUB_EXPORT CURLMcode curl_multi_timeout(CURLM* multi, long* milliseconds)
{
    Count("curl_multi_timeout");
    *milliseconds = 1234;
    return CURLM_OK;
}

STUB_EXPORT char* curl_version(void)
{
    Count("curl_version");
    return (char*)"RkCurlStub/1.0";
}

STUB_EXPORT curl_version_info_data* curl_version_info(CURLversion version)
{
    static curl_version_info_data data;
    Count("curl_version_info");
    data.age = version;
    data.version = "1.0-stub";
    return &data;
}
