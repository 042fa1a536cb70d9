// The five QoS wrappers: each makes its call through the OS boundary
// (Internal/OsQos.h) and turns the outcome into a CZyError with the
// wrapper's own message. The error locations name the platform's QoS file.
#include "ZyNetwork/QosWaveApi.h"

#include "ZyNetwork/Internal/OsQos.h"
#include "ZyUtils/Internal/ErrorCodes.h"

namespace
{
#define QOS_LOC(function) ::FXCodeLocation(zyos::kQosLocationFile, function, __LINE__)

CZyError NotSupported(const FXCodeLocation& location, const char* function)
{
    return FXErrorUtil::ErrorWin32(location, zyerr::kNotSupported,
                                   "Not supported on this system, Group=[%s], Function=[%s]", "Qwave", function);
}
}  // namespace

namespace FXQWaveDll
{
CZyError QOSCreateHandle(_QOS_VERSION* version, void** handle)
{
    const zyos::QosResult result = zyos::QosCreateHandle(version, handle);
    if (result.outcome == zyos::QosResult::QOS_NOT_OFFERED)
        return NotSupported(QOS_LOC("FXQWaveDll::QOSCreateHandle"), "QOSCreateHandle");
    if (result.outcome == zyos::QosResult::QOS_FAILED)
        return FXErrorUtil::ErrorWin32(QOS_LOC("FXQWaveDll::QOSCreateHandle"), result.code,
                                       "Failed to create QOS handle");
    return CZyError::Success();
}

CZyError QOSCloseHandle(void* handle)
{
    const zyos::QosResult result = zyos::QosCloseHandle(handle);
    if (result.outcome == zyos::QosResult::QOS_NOT_OFFERED)
        return NotSupported(QOS_LOC("FXQWaveDll::QOSCloseHandle"), "QOSCloseHandle");
    if (result.outcome == zyos::QosResult::QOS_FAILED)
        return FXErrorUtil::ErrorWin32(QOS_LOC("FXQWaveDll::QOSCloseHandle"), result.code,
                                       "Failed to close QOS handle");
    return CZyError::Success();
}

CZyError QOSSetFlow(void* handle, unsigned long flowId, _QOS_SET_FLOW operation, unsigned long size, void* buffer,
                    unsigned long flags, _OVERLAPPED* overlapped)
{
    const zyos::QosResult result = zyos::QosSetFlow(handle, flowId, operation, size, buffer, flags, overlapped);
    if (result.outcome == zyos::QosResult::QOS_NOT_OFFERED)
        return NotSupported(QOS_LOC("FXQWaveDll::QOSSetFlow"), "QOSSetFlow");
    if (result.outcome == zyos::QosResult::QOS_FAILED)
        return FXErrorUtil::ErrorWin32(QOS_LOC("FXQWaveDll::QOSSetFlow"), result.code, "Failed to set QOS flow");
    return CZyError::Success();
}

CZyError QOSAddSocketToFlow(void* handle, unsigned int socket, sockaddr* destination, _QOS_TRAFFIC_TYPE trafficType,
                            unsigned long flags, unsigned long* flowId)
{
    const zyos::QosResult result = zyos::QosAddSocketToFlow(handle, socket, destination, trafficType, flags, flowId);
    if (result.outcome == zyos::QosResult::QOS_NOT_OFFERED)
        return NotSupported(QOS_LOC("FXQWaveDll::QOSAddSocketToFlow"), "QOSAddSocketToFlow");
    if (result.outcome == zyos::QosResult::QOS_FAILED)
        return FXErrorUtil::ErrorWin32(QOS_LOC("FXQWaveDll::QOSAddSocketToFlow"), result.code,
                                       "Failed to add socket (%u) to the flow", socket);
    return CZyError::Success();
}

CZyError QOSRemoveSocketFromFlow(void* handle, unsigned int socket, unsigned long flowId, unsigned long flags)
{
    const zyos::QosResult result = zyos::QosRemoveSocketFromFlow(handle, socket, flowId, flags);
    if (result.outcome == zyos::QosResult::QOS_NOT_OFFERED)
        return NotSupported(QOS_LOC("FXQWaveDll::QOSRemoveSocketFromFlow"), "QOSRemoveSocketFromFlow");
    if (result.outcome == zyos::QosResult::QOS_FAILED)
        return FXErrorUtil::ErrorWin32(QOS_LOC("FXQWaveDll::QOSRemoveSocketFromFlow"), result.code,
                                       "Failed to remove socket (%u) from the flow", socket);
    return CZyError::Success();
}
}  // namespace FXQWaveDll
