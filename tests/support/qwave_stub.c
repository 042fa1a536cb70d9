/* A stand-in for the system's qWAVE module: counts its loads and calls and
   refuses socket 123 and flow id 0. Built complete and without QOSSetFlow. */
#include <windows.h>

#define STUB_EXPORT __declspec(dllexport)
#define STUB_HANDLE ((HANDLE)(UINT_PTR)0x5157)
#define REFUSED_SOCKET 123

static volatile LONG g_attachCount;
static volatile LONG g_calls[5];
static volatile UINT_PTR g_lastSocket;

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved)
{
    if (reason == DLL_PROCESS_ATTACH)
        InterlockedIncrement(&g_attachCount);
    return TRUE;
}

STUB_EXPORT LONG ZyQwaveStubAttachCount(void)
{
    return g_attachCount;
}

/* Calls of an entry point, in the order they are defined below. */
STUB_EXPORT LONG ZyQwaveStubCalls(int index)
{
    return index >= 0 && index < 5 ? g_calls[index] : -1;
}

STUB_EXPORT UINT_PTR ZyQwaveStubLastSocket(void)
{
    return g_lastSocket;
}

STUB_EXPORT BOOL WINAPI QOSCreateHandle(void* version, HANDLE* handle)
{
    InterlockedIncrement(&g_calls[0]);
    if (version == NULL || handle == NULL)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    *handle = STUB_HANDLE;
    return TRUE;
}

STUB_EXPORT BOOL WINAPI QOSCloseHandle(HANDLE handle)
{
    InterlockedIncrement(&g_calls[1]);
    if (handle != STUB_HANDLE)
    {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return TRUE;
}

#if !defined(ZY_QWAVE_STUB_WITHOUT_SETFLOW)
STUB_EXPORT BOOL WINAPI QOSSetFlow(HANDLE handle, ULONG flowId, int operation, ULONG size, void* buffer, DWORD flags,
                                   OVERLAPPED* overlapped)
{
    InterlockedIncrement(&g_calls[2]);
    if (flowId == 0)
    {
        SetLastError(ERROR_NOT_FOUND);
        return FALSE;
    }
    return TRUE;
}
#endif

STUB_EXPORT BOOL WINAPI QOSAddSocketToFlow(HANDLE handle, UINT_PTR socket, void* destination, int trafficType,
                                           DWORD flags, ULONG* flowId)
{
    InterlockedIncrement(&g_calls[3]);
    g_lastSocket = socket;
    if (socket == REFUSED_SOCKET)
    {
        SetLastError(WSAENOTSOCK);
        return FALSE;
    }
    *flowId = (ULONG)socket + 1000;
    return TRUE;
}

STUB_EXPORT BOOL WINAPI QOSRemoveSocketFromFlow(HANDLE handle, UINT_PTR socket, ULONG flowId, DWORD flags)
{
    InterlockedIncrement(&g_calls[4]);
    g_lastSocket = socket;
    if (socket == REFUSED_SOCKET)
    {
        SetLastError(ERROR_NOT_FOUND);
        return FALSE;
    }
    return TRUE;
}
