// Export macro of the ZyNetwork shared library.
#pragma once

#if defined(ZYNETWORK_STATIC)
#define ZYNET_API
#elif defined(_WIN32)
#if defined(ZYNETWORK_BUILD)
#define ZYNET_API __declspec(dllexport)
#else
#define ZYNET_API __declspec(dllimport)
#endif
#else
#define ZYNET_API __attribute__((visibility("default")))
#endif

#if defined(__GNUC__)
#define ZY_PRINTF_LIKE(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define ZY_PRINTF_LIKE(fmt, args)
#endif

// The calling convention of the platform's system interfaces (what Windows
// headers call WINAPI); other platforms have only one.
#if defined(_WIN32)
#define ZY_STDCALL __stdcall
#else
#define ZY_STDCALL
#endif
