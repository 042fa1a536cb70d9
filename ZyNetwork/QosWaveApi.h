// QoS flows: mark a socket's traffic by traffic type and set the flow's
// DSCP value and outgoing rate. The same five functions and types on every
// platform: on Windows they call the system's qWAVE module (loaded at run
// time, never linked); on Linux they mark sockets directly (IP_TOS,
// IPV6_TCLASS, SO_PRIORITY, SO_MAX_PACING_RATE).
//
// Each function returns a CZyError instead of a BOOL. A function that this
// system does not offer fails with Win32 code 50 and
// "Not supported on this system, Group=[Qwave], Function=[<name>]"; a call
// that fails reports the system's code with the function's own message.
//
// The types are in QosWaveTypes.h.
#pragma once

#include "ZyNetwork/QosWaveTypes.h"
#include "ZyUtils/ZyError.h"
#include "ZyUtils/ZyExport.h"

namespace FXQWaveDll
{
// A handle for the calls below; close it with QOSCloseHandle.
ZYNET_API CZyError QOSCreateHandle(_QOS_VERSION* version, void** handle);
// Closes a handle from QOSCreateHandle.
ZYNET_API CZyError QOSCloseHandle(void* handle);
// Changes a flow: its traffic type, outgoing rate or DSCP value.
ZYNET_API CZyError QOSSetFlow(void* handle, unsigned long flowId, _QOS_SET_FLOW operation, unsigned long size,
                              void* buffer, unsigned long flags, _OVERLAPPED* overlapped);
// Adds `socket` to a new flow (*flowId 0 on input) or to an existing
// non-adaptive flow (*flowId that flow) and returns the flow's id.
ZYNET_API CZyError QOSAddSocketToFlow(void* handle, unsigned int socket, sockaddr* destination,
                                      _QOS_TRAFFIC_TYPE trafficType, unsigned long flags, unsigned long* flowId);
// Takes `socket` out of flow `flowId`.
ZYNET_API CZyError QOSRemoveSocketFromFlow(void* handle, unsigned int socket, unsigned long flowId,
                                           unsigned long flags);
}  // namespace FXQWaveDll
