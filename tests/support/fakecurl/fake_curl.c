/* A stand-in for libcurl that records what the request classes ask of it:
 * every easy-interface call is counted, every setopt is logged, and a test
 * can make a chosen option, the handle's creation or the transfer fail.
 * Loaded through ZYNET_CURL_LIBRARY by the request-core tests. */
#define CURL_STATICLIB 1
#define CURL_DISABLE_TYPECHECK 1
#define CURL_DISABLE_DEPRECATION 1
#include <curl/curl.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

#define MAX_LOG 512

struct logged
{
    int option;
    long number;
    char text[256];
};

static int g_calls;
static int g_failOption = -1;
static int g_failCode;
static int g_failInit;
static int g_performResult;
static long g_responseCode = 200;
static double g_contentLength = 5;
static struct logged g_log[MAX_LOG];
static int g_logCount;

void zyfake_reset(void)
{
    g_calls = 0;
    g_failOption = -1;
    g_failCode = 0;
    g_failInit = 0;
    g_performResult = 0;
    g_responseCode = 200;
    g_contentLength = 5;
    g_logCount = 0;
}
int zyfake_calls(void) { return g_calls; }
void zyfake_fail_option(int option, int code)
{
    g_failOption = option;
    g_failCode = code;
}
void zyfake_fail_init(int fail) { g_failInit = fail; }
void zyfake_set_perform(int result, long responseCode, double contentLength)
{
    g_performResult = result;
    g_responseCode = responseCode;
    g_contentLength = contentLength;
}
int zyfake_option_count(void) { return g_logCount; }
/* The option of log entry `i`, with its number or text. */
int zyfake_option(int i, long* number, const char** text)
{
    if (i < 0 || i >= g_logCount)
        return -1;
    *number = g_log[i].number;
    *text = g_log[i].text;
    return g_log[i].option;
}

CURLcode curl_global_init(long flags)
{
    (void)flags;
    return CURLE_OK;
}
void curl_global_cleanup(void) {}

CURL* curl_easy_init(void)
{
    ++g_calls;
    return g_failInit ? NULL : (CURL*)malloc(16);
}
void curl_easy_cleanup(CURL* handle)
{
    ++g_calls;
    free(handle);
}

CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...)
{
    va_list args;
    struct logged entry;
    ++g_calls;
    memset(&entry, 0, sizeof(entry));
    entry.option = (int)option;
    va_start(args, option);
    if (option < CURLOPTTYPE_OBJECTPOINT)
        entry.number = va_arg(args, long);
    else if (option < CURLOPTTYPE_FUNCTIONPOINT)
    {
        /* Strings are kept; other object pointers only as "set or not". */
        const char* value = va_arg(args, const char*);
        entry.number = value != NULL;
        if (value && (option == CURLOPT_URL || option == CURLOPT_USERPWD || option == CURLOPT_PROXY ||
                      option == CURLOPT_PROXYUSERPWD || option == CURLOPT_NOPROXY || option == CURLOPT_CAINFO ||
                      option == CURLOPT_CUSTOMREQUEST || option == CURLOPT_PROTOCOLS_STR))
            strncpy(entry.text, value, sizeof(entry.text) - 1);
    }
    else if (option < CURLOPTTYPE_OFF_T)
        entry.number = va_arg(args, void*) != NULL;
    else
        entry.number = (long)va_arg(args, curl_off_t);
    va_end(args);
    if (handle == NULL)
        return CURLE_BAD_FUNCTION_ARGUMENT;
    if (g_logCount < MAX_LOG)
        g_log[g_logCount++] = entry;
    return (int)option == g_failOption ? (CURLcode)g_failCode : CURLE_OK;
}

CURLcode curl_easy_perform(CURL* handle)
{
    (void)handle;
    ++g_calls;
    return (CURLcode)g_performResult;
}

CURLcode curl_easy_getinfo(CURL* handle, CURLINFO info, ...)
{
    va_list args;
    (void)handle;
    ++g_calls;
    va_start(args, info);
    if (info == CURLINFO_RESPONSE_CODE)
        *va_arg(args, long*) = g_responseCode;
    else if (info == CURLINFO_CONTENT_LENGTH_DOWNLOAD)
        *va_arg(args, double*) = g_contentLength;
    else if (info == CURLINFO_EFFECTIVE_URL)
        *va_arg(args, const char**) = "http://fake/effective";
    else if (info == CURLINFO_REDIRECT_URL)
        *va_arg(args, const char**) = NULL;
    va_end(args);
    return CURLE_OK;
}

struct curl_slist* curl_slist_append(struct curl_slist* list, const char* text)
{
    struct curl_slist* item = (struct curl_slist*)malloc(sizeof(*item));
    struct curl_slist* last = list;
    ++g_calls;
    item->data = strdup(text);
    item->next = NULL;
    if (!list)
        return item;
    while (last->next)
        last = last->next;
    last->next = item;
    return list;
}

void curl_slist_free_all(struct curl_slist* list)
{
    ++g_calls;
    while (list)
    {
        struct curl_slist* next = list->next;
        free(list->data);
        free(list);
        list = next;
    }
}

/* Percent-encodes all but the unreserved characters, as curl does. */
char* curl_easy_escape(CURL* handle, const char* text, int length)
{
    static const char hex[] = "0123456789ABCDEF";
    size_t n = length > 0 ? (size_t)length : strlen(text);
    char* out = (char*)malloc(n * 3 + 1);
    char* p = out;
    size_t i;
    (void)handle;
    ++g_calls;
    for (i = 0; i < n; ++i)
    {
        unsigned char c = (unsigned char)text[i];
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
            c == '_' || c == '~')
            *p++ = (char)c;
        else
        {
            *p++ = '%';
            *p++ = hex[c >> 4];
            *p++ = hex[c & 15];
        }
    }
    *p = 0;
    return out;
}

char* curl_easy_unescape(CURL* handle, const char* text, int length, int* outLength)
{
    size_t n = length > 0 ? (size_t)length : strlen(text);
    char* out = (char*)malloc(n + 1);
    (void)handle;
    ++g_calls;
    memcpy(out, text, n);
    out[n] = 0;
    if (outLength)
        *outLength = (int)n;
    return out;
}

void curl_free(void* pointer)
{
    ++g_calls;
    free(pointer);
}
