// The five QoS wrappers: each makes its call through the OS boundary
// (Internal/OsQos.h) and turns the outcome into a CZyError with the
// wrapper's own message. The error locations name the platform's QoS file.
#include "ZyNetwork/QosWaveApi.h"

#include "ZyNetwork/Internal/OsQos.h"
#include "ZyUtils/Internal/ErrorCodes.h"

namespace
{
#define QOS_LOC(function) ::FXCodeLocation(zy::os::kQosLocationFile, function, __LINE__)

// The wrapper's answer to one boundary call. A call the system does not offer
// names `function` in its message; a failure carries the call's code and the
// wrapper's `failure` message, formatted with `socket` where it names one.
CZyError Answer(const zy::os::QosResult& result, const FXCodeLocation& location, const char* function,
                const char* failure, unsigned int socket = 0)
{
    if (result.outcome == zy::os::QosResult::QOS_NOT_OFFERED)
        return FXErrorUtil::ErrorWin32(location, zy::err::kNotSupported,
                                       "Not supported on this system, Group=[%s], Function=[%s]", "Qwave", function);
    if (result.outcome == zy::os::QosResult::QOS_FAILED)
        return FXErrorUtil::ErrorWin32(location, result.code, failure, socket);
    return CZyError::Success();
}
}  // namespace

namespace FXQWaveDll
{
CZyError QOSCreateHandle(_QOS_VERSION* version, void** handle)
{
    return Answer(zy::os::QosCreateHandle(version, handle), QOS_LOC("FXQWaveDll::QOSCreateHandle"), "QOSCreateHandle",
                  "Failed to create QOS handle");
}

CZyError QOSCloseHandle(void* handle)
{
    return Answer(zy::os::QosCloseHandle(handle), QOS_LOC("FXQWaveDll::QOSCloseHandle"), "QOSCloseHandle",
                  "Failed to close QOS handle");
}

CZyError QOSSetFlow(void* handle, unsigned long flowId, _QOS_SET_FLOW operation, unsigned long size, void* buffer,
                    unsigned long flags, _OVERLAPPED* overlapped)
{
    return Answer(zy::os::QosSetFlow(handle, flowId, operation, size, buffer, flags, overlapped),
                  QOS_LOC("FXQWaveDll::QOSSetFlow"), "QOSSetFlow", "Failed to set QOS flow");
}

CZyError QOSAddSocketToFlow(void* handle, unsigned int socket, sockaddr* destination, _QOS_TRAFFIC_TYPE trafficType,
                            unsigned long flags, unsigned long* flowId)
{
    return Answer(zy::os::QosAddSocketToFlow(handle, socket, destination, trafficType, flags, flowId),
                  QOS_LOC("FXQWaveDll::QOSAddSocketToFlow"), "QOSAddSocketToFlow",
                  "Failed to add socket (%u) to the flow", socket);
}

CZyError QOSRemoveSocketFromFlow(void* handle, unsigned int socket, unsigned long flowId, unsigned long flags)
{
    return Answer(zy::os::QosRemoveSocketFromFlow(handle, socket, flowId, flags),
                  QOS_LOC("FXQWaveDll::QOSRemoveSocketFromFlow"), "QOSRemoveSocketFromFlow",
                  "Failed to remove socket (%u) from the flow", socket);
}
}  // namespace FXQWaveDll
