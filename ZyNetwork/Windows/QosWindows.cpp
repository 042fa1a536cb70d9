// The Windows half of the QoS boundary: the system's qWAVE module, loaded
// at run time. One process-wide loader, created on the first call, resolves
// the five entry points once; a missing module or entry point leaves the
// calls concerned not offered for the life of the process.
#include "ZyNetwork/Internal/OsQos.h"

#include <winsock2.h>
#include <windows.h>

#include <string>

#include "ZyUtils/Windows/DynamicLoadBase.h"
#include "ZyUtils/ZyString.h"

namespace zy::os
{
// The wrappers' error locations keep the name of the file that first held them.
const char* const kQosLocationFile = "ZyNetwork/Windows/QosWaveApi";
}

namespace
{
const char* const kZyFile = "ZyNetwork/Windows/QosWaveApi";

// The module's entry points. The socket is the platform's SOCKET (pointer
// wide); the wrappers take the library's 32-bit handle and widen it here.
typedef int(__stdcall* QOSCreateHandleFn)(_QOS_VERSION*, void**);
typedef int(__stdcall* QOSCloseHandleFn)(void*);
typedef int(__stdcall* QOSSetFlowFn)(void*, unsigned long, _QOS_SET_FLOW, unsigned long, void*, unsigned long,
                                     _OVERLAPPED*);
typedef int(__stdcall* QOSAddSocketToFlowFn)(void*, UINT_PTR, sockaddr*, _QOS_TRAFFIC_TYPE, unsigned long,
                                             unsigned long*);
typedef int(__stdcall* QOSRemoveSocketFromFlowFn)(void*, UINT_PTR, unsigned long, unsigned long);
}  // namespace

namespace FXQWaveDll
{
// The module name: "Qwave.dll", or the file named by the environment
// variable ZYNET_QWAVE_MODULE when it is set and not empty (read once, when
// the loader is created; for deployments and tests).
static std::string QwaveModuleName()
{
    wchar_t buffer[MAX_PATH * 2];
    DWORD length = GetEnvironmentVariableW(L"ZYNET_QWAVE_MODULE", buffer, sizeof(buffer) / sizeof(buffer[0]));
    if (length > 0 && length < sizeof(buffer) / sizeof(buffer[0]))
        return FXString::ToString(std::wstring(buffer, length));
    return "Qwave.dll";
}

class CDynamicLoadBaseQwave : public CDynamicLoadBase
{
public:
    CDynamicLoadBaseQwave()
        : m_QOSCreateHandle("CLoadedFunction<int (__stdcall*)(_QOS_VERSION *,void * *)>::Load"),
          m_QOSCloseHandle("CLoadedFunction<int (__stdcall*)(void *)>::Load"),
          m_QOSSetFlow("CLoadedFunction<int (__stdcall*)(void *,unsigned long,_QOS_SET_FLOW,unsigned long,void *,"
                       "unsigned long,_OVERLAPPED *)>::Load"),
          m_QOSAddSocketToFlow("CLoadedFunction<int (__stdcall*)(void *,unsigned __int64,sockaddr *,"
                               "_QOS_TRAFFIC_TYPE,unsigned long,unsigned long *)>::Load"),
          m_QOSRemoveSocketFromFlow("CLoadedFunction<int (__stdcall*)(void *,unsigned __int64,unsigned long,"
                                    "unsigned long)>::Load")
    {
        m_loadResult = LoadDynamicFunctions();
    }

    static const CDynamicLoadBaseQwave& Instance()
    {
        // Created once, thread-safely, on the first call of any wrapper;
        // destroyed at process exit (the module itself stays loaded).
        static const CDynamicLoadBaseQwave s_instance;
        return s_instance;
    }

    CLoadedFunction<QOSCreateHandleFn> m_QOSCreateHandle;
    CLoadedFunction<QOSCloseHandleFn> m_QOSCloseHandle;
    CLoadedFunction<QOSSetFlowFn> m_QOSSetFlow;
    CLoadedFunction<QOSAddSocketToFlowFn> m_QOSAddSocketToFlow;
    CLoadedFunction<QOSRemoveSocketFromFlowFn> m_QOSRemoveSocketFromFlow;
    CZyError m_loadResult;

private:
    CZyError LoadDynamicFunctions()
    {
        if (m_module != nullptr)
            return CZyError::Success();
        m_loadAttempted = true;
        CZyError error = Load(QwaveModuleName().c_str());
        if (error.IsError())
            return error.Push(ZY_LOC("FXQWaveDll::CDynamicLoadBaseQwave::LoadDynamicFunctions"));
        // Each entry point keeps its own outcome; a missing one leaves the
        // others usable.
        m_QOSCreateHandle.Load(*this, "QOSCreateHandle");
        m_QOSCloseHandle.Load(*this, "QOSCloseHandle");
        m_QOSSetFlow.Load(*this, "QOSSetFlow");
        m_QOSAddSocketToFlow.Load(*this, "QOSAddSocketToFlow");
        m_QOSRemoveSocketFromFlow.Load(*this, "QOSRemoveSocketFromFlow");
        return CZyError::Success();
    }
};

static UINT_PTR WidenSocket(unsigned int socket)
{
    return socket == 0xFFFFFFFFu ? static_cast<UINT_PTR>(INVALID_SOCKET) : static_cast<UINT_PTR>(socket);
}
}  // namespace FXQWaveDll

namespace zy::os
{
namespace
{
using FXQWaveDll::CDynamicLoadBaseQwave;

// A call's outcome from its BOOL result; the code is read at once.
QosResult Outcome(int succeeded)
{
    if (succeeded)
        return QosResult{QosResult::QOS_DONE, 0};
    return QosResult{QosResult::QOS_FAILED, static_cast<uint32_t>(GetLastError())};
}

const QosResult kNotOffered = {QosResult::QOS_NOT_OFFERED, 0};
}  // namespace

QosResult QosCreateHandle(_QOS_VERSION* version, void** handle)
{
    QOSCreateHandleFn function = CDynamicLoadBaseQwave::Instance().m_QOSCreateHandle.Get();
    return function == nullptr ? kNotOffered : Outcome(function(version, handle));
}

QosResult QosCloseHandle(void* handle)
{
    QOSCloseHandleFn function = CDynamicLoadBaseQwave::Instance().m_QOSCloseHandle.Get();
    return function == nullptr ? kNotOffered : Outcome(function(handle));
}

QosResult QosSetFlow(void* handle, unsigned long flowId, _QOS_SET_FLOW operation, unsigned long size, void* buffer,
                     unsigned long flags, _OVERLAPPED* overlapped)
{
    QOSSetFlowFn function = CDynamicLoadBaseQwave::Instance().m_QOSSetFlow.Get();
    return function == nullptr ? kNotOffered
                               : Outcome(function(handle, flowId, operation, size, buffer, flags, overlapped));
}

QosResult QosAddSocketToFlow(void* handle, unsigned int socket, sockaddr* destination, _QOS_TRAFFIC_TYPE trafficType,
                             unsigned long flags, unsigned long* flowId)
{
    QOSAddSocketToFlowFn function = CDynamicLoadBaseQwave::Instance().m_QOSAddSocketToFlow.Get();
    return function == nullptr
               ? kNotOffered
               : Outcome(function(handle, FXQWaveDll::WidenSocket(socket), destination, trafficType, flags, flowId));
}

QosResult QosRemoveSocketFromFlow(void* handle, unsigned int socket, unsigned long flowId, unsigned long flags)
{
    QOSRemoveSocketFromFlowFn function = CDynamicLoadBaseQwave::Instance().m_QOSRemoveSocketFromFlow.Get();
    return function == nullptr ? kNotOffered
                               : Outcome(function(handle, FXQWaveDll::WidenSocket(socket), flowId, flags));
}
}  // namespace zy::os
