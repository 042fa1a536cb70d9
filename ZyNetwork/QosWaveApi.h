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
// The types below carry the names and values of the Windows SDK's qos2.h
// (whose mingw-w64 copy does not compile); include this header instead of it.
#pragma once

#include "ZyUtils/ZyError.h"
#include "ZyUtils/ZyExport.h"

struct sockaddr;
struct _OVERLAPPED;

// The qWAVE version a caller asks for (1.0).
typedef struct _QOS_VERSION
{
    unsigned short MajorVersion;
    unsigned short MinorVersion;
} QOS_VERSION, *PQOS_VERSION;

typedef enum _QOS_TRAFFIC_TYPE
{
    QOSTrafficTypeBestEffort = 0,
    QOSTrafficTypeBackground = 1,
    QOSTrafficTypeExcellentEffort = 2,
    QOSTrafficTypeAudioVideo = 3,
    QOSTrafficTypeVoice = 4,
    QOSTrafficTypeControl = 5
} QOS_TRAFFIC_TYPE, *PQOS_TRAFFIC_TYPE;

typedef enum _QOS_SET_FLOW
{
    QOSSetTrafficType = 0,        // buffer: a QOS_TRAFFIC_TYPE
    QOSSetOutgoingRate = 1,       // buffer: a QOS_FLOWRATE_OUTGOING
    QOSSetOutgoingDSCPValue = 2   // buffer: an unsigned long, 0..63
} QOS_SET_FLOW, *PQOS_SET_FLOW;

typedef enum _QOS_SHAPING
{
    QOSShapeOnly = 0,
    QOSShapeAndMark = 1,
    QOSUseNonConformantMarkings = 2
} QOS_SHAPING, *PQOS_SHAPING;

typedef enum _QOS_FLOWRATE_REASON
{
    QOSFlowRateNotApplicable = 0,
    QOSFlowRateContentChange = 1,
    QOSFlowRateCongestion = 2,
    QOSFlowRateHigherContentEncoding = 3,
    QOSFlowRateUserCaused = 4
} QOS_FLOWRATE_REASON, *PQOS_FLOWRATE_REASON;

// The outgoing rate of a flow, in bits per second.
typedef struct _QOS_FLOWRATE_OUTGOING
{
    unsigned long long Bandwidth;
    QOS_SHAPING ShapingBehavior;
    QOS_FLOWRATE_REASON Reason;
} QOS_FLOWRATE_OUTGOING, *PQOS_FLOWRATE_OUTGOING;

typedef unsigned long QOS_FLOWID, *PQOS_FLOWID;

// QOSAddSocketToFlow flag: no network-path measurements; only such flows
// may carry more than one socket.
#define QOS_NON_ADAPTIVE_FLOW 0x00000002

// The version QOSCreateHandle accepts.
#define QOS_VERSION_MAJOR_CURRENT 1
#define QOS_VERSION_MINOR_CURRENT 0

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
