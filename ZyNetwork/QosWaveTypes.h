// The types of the QoS flow functions (QosWaveApi.h). They carry the names
// and values of the Windows SDK's qos2.h (whose mingw-w64 copy does not
// compile); include this header instead of it.
#pragma once

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
