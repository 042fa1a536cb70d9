/* A stand-in for the curl library file: the curl functions the binding
 * resolves except "curl_easy_pause". It counts calls by name, logs every
 * setopt, and fails an option, the handle's creation or the transfer on
 * request; the tests steer it through the rkstub_* functions. */
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

static int g_multiHandle;

static const char* const g_names[] = {
    "curl_global_init", "curl_global_cleanup", "curl_easy_init", "curl_easy_cleanup", "curl_easy_reset",
    "curl_easy_perform", "curl_easy_getinfo", "curl_easy_setopt", "curl_easy_strerror", "curl_easy_escape",
    "curl_easy_unescape", "curl_free", "curl_formadd", "curl_formfree", "curl_getdate", "curl_slist_append",
    "curl_slist_free_all", "curl_multi_init", "curl_multi_add_handle", "curl_multi_remove_handle",
    "curl_multi_perform", "curl_multi_fdset", "curl_multi_timeout", "curl_version", "curl_version_info"};
#define STUB_FUNCTIONS (sizeof(g_names) / sizeof(g_names[0]))
static long g_calls[STUB_FUNCTIONS]; /* updated atomically: threads call in at once */

/* One setopt: the number (long or curl_off_t), the pointer, and for the
 * string options the tests read, the text. */
struct logged { int option; long long number; const void* pointer; char text[256]; };
#define MAX_LOG 512
static struct logged g_log[MAX_LOG];
static int g_logCount;

static long g_globalInitFlags = -1;
static int g_failOption = -1;
static int g_failCode;
static int g_failInit;
static int g_performResult;
static long g_responseCode = 200;
static double g_contentLength = 5;
static char g_formTrace[512];

static void Count(const char* name)
{
    size_t i;
    for (i = 0; i < STUB_FUNCTIONS; ++i)
        if (strcmp(g_names[i], name) == 0)
            __atomic_add_fetch(&g_calls[i], 1, __ATOMIC_SEQ_CST);
}

/* The calls to `name`; with NULL, the calls to every function. */
STUB_EXPORT long rkstub_calls(const char* name)
{
    long total = 0;
    size_t i;
    for (i = 0; i < STUB_FUNCTIONS; ++i)
        if (!name || strcmp(g_names[i], name) == 0)
            total += __atomic_load_n(&g_calls[i], __ATOMIC_SEQ_CST);
    return total;
}
STUB_EXPORT long rkstub_global_init_flags(void) { return g_globalInitFlags; }
STUB_EXPORT const char* rkstub_form_trace(void) { return g_formTrace; }
STUB_EXPORT void rkstub_fail_option(int option, int code) { g_failOption = option, g_failCode = code; }
STUB_EXPORT void rkstub_fail_init(int fail) { g_failInit = fail; }
STUB_EXPORT void rkstub_set_perform(int result, long responseCode, double contentLength)
{
    g_performResult = result, g_responseCode = responseCode, g_contentLength = contentLength;
}
STUB_EXPORT void rkstub_reset(void)
{
    memset(g_calls, 0, sizeof(g_calls));
    rkstub_fail_option(-1, 0);
    rkstub_set_perform(0, 200, 5);
    g_failInit = g_logCount = 0;
}
STUB_EXPORT int rkstub_option_count(void) { return g_logCount; }
/* The option of log entry `i` (-1 past the end) with its value. */
STUB_EXPORT int rkstub_option(int i, long long* number, const void** pointer, const char** text)
{
    if (i < 0 || i >= g_logCount)
        return -1;
    *number = g_log[i].number;
    *pointer = g_log[i].pointer;
    *text = g_log[i].text;
    return g_log[i].option;
}

/* A function that only counts its call and answers `value`. */
#define STUB_COUNTED(type, name, params, value) \
    STUB_EXPORT type name params                \
    {                                           \
        Count(#name);                           \
        return value;                           \
    }

STUB_COUNTED(CURLcode, curl_global_init, (long flags), (g_globalInitFlags = flags, CURLE_OK))

STUB_EXPORT void curl_global_cleanup(void) { Count("curl_global_cleanup"); }

/* A leaked handle shows under the sanitizer. */
STUB_COUNTED(CURL*, curl_easy_init, (void), g_failInit ? NULL : (CURL*)malloc(16))
STUB_EXPORT void curl_easy_cleanup(CURL* handle) { Count("curl_easy_cleanup"), free(handle); }
STUB_EXPORT void curl_easy_reset(CURL* handle) { Count("curl_easy_reset"); }
STUB_COUNTED(CURLcode, curl_easy_perform, (CURL* handle),
             handle ? (CURLcode)g_performResult : CURLE_BAD_FUNCTION_ARGUMENT)

STUB_EXPORT CURLcode curl_easy_getinfo(CURL* handle, CURLINFO info, ...)
{
    va_list args;
    CURLcode result = CURLE_OK;
    Count("curl_easy_getinfo");
    va_start(args, info);
    if (info == CURLINFO_RESPONSE_CODE)
        *va_arg(args, long*) = g_responseCode;
    else if (info == CURLINFO_CONTENT_LENGTH_DOWNLOAD)
        *va_arg(args, double*) = g_contentLength;
    else if (info == CURLINFO_EFFECTIVE_URL)
        *va_arg(args, const char**) = "http://fake/effective";
    else if (info == CURLINFO_REDIRECT_URL)
        *va_arg(args, const char**) = NULL;
    else
        result = CURLE_UNKNOWN_OPTION;
    va_end(args);
    return result;
}

/* Reads the value as curl does: by the option's type range. */
STUB_EXPORT CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...)
{
    va_list args;
    struct logged entry;
    Count("curl_easy_setopt");
    memset(&entry, 0, sizeof(entry));
    entry.option = (int)option;
    va_start(args, option);
    if (option < CURLOPTTYPE_OBJECTPOINT)
        entry.number = va_arg(args, long);
    else if (option < CURLOPTTYPE_OFF_T)
    {
        entry.pointer = va_arg(args, void*);
        entry.number = entry.pointer != NULL;
        if (entry.pointer &&
            (option == CURLOPT_URL || option == CURLOPT_USERPWD || option == CURLOPT_PROXY ||
             option == CURLOPT_PROXYUSERPWD || option == CURLOPT_NOPROXY || option == CURLOPT_CAINFO ||
             option == CURLOPT_CUSTOMREQUEST || option == CURLOPT_PROTOCOLS_STR))
            strncpy(entry.text, (const char*)entry.pointer, sizeof(entry.text) - 1);
    }
    else
        entry.number = va_arg(args, curl_off_t);
    va_end(args);
    if (handle == NULL)
        return CURLE_BAD_FUNCTION_ARGUMENT;
    if (g_logCount < MAX_LOG)
        g_log[g_logCount++] = entry;
    return (int)option == g_failOption ? (CURLcode)g_failCode : CURLE_OK;
}

STUB_COUNTED(const char*, curl_easy_strerror, (CURLcode code), "stub strerror")

/* Escaping and unescaping copy the text unchanged. */
static char* CopyOf(const char* text, int length, int* outLength)
{
    size_t n = length > 0 ? (size_t)length : strlen(text);
    char* out = (char*)malloc(n + 1);
    memcpy(out, text, n);
    out[n] = 0;
    if (outLength)
        *outLength = (int)n;
    return out;
}

STUB_COUNTED(char*, curl_easy_escape, (CURL* handle, const char* text, int length), CopyOf(text, length, NULL))
STUB_COUNTED(char*, curl_easy_unescape, (CURL* handle, const char* text, int length, int* outLength),
             CopyOf(text, length, outLength))
STUB_EXPORT void curl_free(void* pointer) { Count("curl_free"), free(pointer); }

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

STUB_COUNTED(time_t, curl_getdate, (const char* text, const time_t* unused), (time_t)strlen(text))

STUB_EXPORT struct curl_slist* curl_slist_append(struct curl_slist* list, const char* text)
{
    struct curl_slist* item = (struct curl_slist*)calloc(1, sizeof(*item));
    struct curl_slist* tail = list;
    Count("curl_slist_append");
    item->data = CopyOf(text, 0, NULL);
    if (!list)
        return item;
    while (tail->next)
        tail = tail->next;
    tail->next = item;
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

STUB_COUNTED(CURLM*, curl_multi_init, (void), (CURLM*)&g_multiHandle)
STUB_COUNTED(CURLMcode, curl_multi_add_handle, (CURLM* multi, CURL* easy), CURLM_OK)
STUB_COUNTED(CURLMcode, curl_multi_remove_handle, (CURLM* multi, CURL* easy), CURLM_OK)

STUB_COUNTED(CURLMcode, curl_multi_perform, (CURLM* multi, int* running), (*running = 0, CURLM_OK))
STUB_COUNTED(CURLMcode, curl_multi_fdset, (CURLM* multi, fd_set* read, fd_set* write, fd_set* except, int* maxFd),
             (*maxFd = -1, CURLM_OK))
STUB_COUNTED(CURLMcode, curl_multi_timeout, (CURLM* multi, long* milliseconds), (*milliseconds = 1234, CURLM_OK))

STUB_COUNTED(char*, curl_version, (void), (char*)"RkCurlStub/1.0")

static curl_version_info_data g_versionInfo = {.age = CURLVERSION_NOW, .version = "1.0-stub"};
STUB_COUNTED(curl_version_info_data*, curl_version_info, (CURLversion version), &g_versionInfo)
