// QoS flows at the OS boundary: the five qWAVE calls as each platform makes
// them (ZyNetwork/Posix/QosPosix.cpp, ZyNetwork/Windows/QosWindows.cpp). The
// portable wrappers (ZyNetwork/QosWaveApi.cpp) turn each outcome into the
// error the caller sees; the halves only make the calls.
// - Windows: the system's qWAVE module, loaded once per process on the first
//   call; an entry point it lacks is reported as not offered.
// - Linux: socket marking (IP_TOS, IPV6_TCLASS, SO_PRIORITY,
//   SO_MAX_PACING_RATE); every call is offered. Handles live in a lock-free
//   table; a handle's flows belong to that handle alone.
// Conventions: argument and record types are qWAVE's (QosWaveTypes.h); a
// failure carries the Win32 code Windows gives it; the socket is the
// library's 32-bit handle (widened on Windows).
// Internal: not installed, not exported.
#pragma once

#include <stdint.h>

#include "ZyNetwork/QosWaveTypes.h"

namespace zy::os
{
// The file that error locations of the QoS wrappers name on this platform.
extern const char* const kQosLocationFile;

// The outcome of one call.
struct QosResult
{
    enum Outcome
    {
        QOS_DONE,         // the call succeeded
        QOS_FAILED,       // the call failed with `code`
        QOS_NOT_OFFERED   // this system has no such function
    };
    Outcome outcome;
    uint32_t code;  // QOS_FAILED: the Win32 code (whatever the system gave, 0 included)
};

QosResult QosCreateHandle(_QOS_VERSION* version, void** handle);
QosResult QosCloseHandle(void* handle);
QosResult QosSetFlow(void* handle, unsigned long flowId, _QOS_SET_FLOW operation, unsigned long size, void* buffer,
                     unsigned long flags, _OVERLAPPED* overlapped);
QosResult QosAddSocketToFlow(void* handle, unsigned int socket, sockaddr* destination, _QOS_TRAFFIC_TYPE trafficType,
                             unsigned long flags, unsigned long* flowId);
QosResult QosRemoveSocketFromFlow(void* handle, unsigned int socket, unsigned long flowId, unsigned long flags);
}  // namespace zy::os
