// The Linux half of the QoS boundary: the qWAVE calls over socket marking.
// A flow marks the traffic of its sockets with the DSCP value and
// 802.1p-style priority that Windows gives its traffic type (IP_TOS for
// IPv4, IPV6_TCLASS for IPv6, SO_PRIORITY for both) and may cap the sending
// rate (SO_MAX_PACING_RATE). Each socket's earlier marking is saved when it
// joins a flow and put back when it leaves or the handle is closed.
//
// Failures carry the Win32 code Windows gives them. No call takes a lock:
// open handles sit in a lock-free table, flow ids come from an atomic
// counter, and a handle's flows belong to that handle alone (calls on one
// handle are made by one thread at a time).
#include "ZyNetwork/Internal/OsQos.h"

#include <errno.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <atomic>
#include <map>
#include <new>
#include <vector>

#include "ZyUtils/Internal/ErrorCodes.h"

namespace zy::os
{
const char* const kQosLocationFile = "ZyNetwork/Posix/QosPosix";
}

namespace
{
// Codes (ErrorCodes.h): 6 not a handle of QOSCreateHandle, 1168 no such flow
// or the socket is not in it, 87 a bad argument, 50 not supported, 10038 not
// a socket.

// What Windows puts on the wire for each traffic type: the DSCP value and the
// 802.1p user priority, which is used as the socket priority here.
struct TrafficMarking
{
    int dscp;
    int priority;
};
const TrafficMarking kTrafficMarking[] = {
    {0, 0},   // QOSTrafficTypeBestEffort
    {8, 2},   // QOSTrafficTypeBackground (CS1)
    {40, 5},  // QOSTrafficTypeExcellentEffort (CS5)
    {40, 5},  // QOSTrafficTypeAudioVideo (CS5)
    {56, 7},  // QOSTrafficTypeVoice (CS7)
    {56, 7},  // QOSTrafficTypeControl (CS7)
};
// Without CAP_NET_ADMIN Linux allows socket priorities 0 to 6 only.
const int kMaxUnprivilegedPriority = 6;

// A socket in a flow, with the marking it had before it joined.
struct FlowSocket
{
    unsigned int socket;
    dev_t device;  // identity of the open socket, so that a descriptor number
    ino_t inode;   // reused by another socket is never touched
    int family;
    bool savedTos;  // IP_TOS read (IPv4, and IPv6 sockets that carry IPv4 too)
    int tos;
    int tclass;
    int priority;
    bool savedPacing;
    uint64_t pacing;
    bool pacingChanged;
};

struct Flow
{
    int dscp;
    int priority;
    bool nonAdaptive;
    bool rateSet;
    uint64_t bytesPerSecond;
    std::vector<FlowSocket> sockets;
};

struct QosHandle
{
    std::map<unsigned long, Flow> flows;
};

// The open handles: a grow-only table of slots, each holding a handle or
// null. Creating a handle claims a free slot with a compare-and-swap and
// closing one empties its slot the same way, so two closes of one handle
// cannot both succeed. Looking a handle up compares addresses only: a
// pointer that is no handle is never read through. Chunks are added in
// order and kept until the process ends.
const size_t kSlotsPerChunk = 64;
const size_t kMaxChunks = 256;  // 16,384 handles open at once
struct HandleChunk
{
    std::atomic<QosHandle*> slots[kSlotsPerChunk];
};
std::atomic<HandleChunk*> g_chunks[kMaxChunks];
std::atomic<unsigned long> g_nextFlowId{1};

// Chunk `index`, made when `create` and it does not exist yet.
HandleChunk* Chunk(size_t index, bool create)
{
    HandleChunk* chunk = g_chunks[index].load(std::memory_order_acquire);
    if (chunk != nullptr || !create)
        return chunk;
    HandleChunk* made = new (std::nothrow) HandleChunk();
    if (made == nullptr)
        return nullptr;
    if (g_chunks[index].compare_exchange_strong(chunk, made, std::memory_order_acq_rel))
        return made;
    delete made;  // another thread added it first
    return chunk;
}

bool RegisterHandle(QosHandle* handle)
{
    for (size_t index = 0; index < kMaxChunks; ++index)
    {
        HandleChunk* chunk = Chunk(index, true);
        if (chunk == nullptr)
            return false;
        for (std::atomic<QosHandle*>& slot : chunk->slots)
        {
            QosHandle* empty = nullptr;
            if (slot.load(std::memory_order_relaxed) == nullptr &&
                slot.compare_exchange_strong(empty, handle, std::memory_order_acq_rel))
                return true;
        }
    }
    return false;
}

// The slot that holds `handle`, or null.
std::atomic<QosHandle*>* FindSlot(void* handle)
{
    if (handle == nullptr)
        return nullptr;
    for (size_t index = 0; index < kMaxChunks; ++index)
    {
        HandleChunk* chunk = Chunk(index, false);
        if (chunk == nullptr)
            return nullptr;  // chunks exist in order: none further on
        for (std::atomic<QosHandle*>& slot : chunk->slots)
            if (slot.load(std::memory_order_acquire) == handle)
                return &slot;
    }
    return nullptr;
}

QosHandle* FindHandle(void* handle)
{
    std::atomic<QosHandle*>* slot = FindSlot(handle);
    return slot == nullptr ? nullptr : slot->load(std::memory_order_acquire);
}

// The Win32 codes the QoS calls report for the errno values they can meet;
// any other errno is passed on as it is.
const struct
{
    int error;
    uint32_t code;
} kWin32ForErrno[] = {
    // clang-format off
    {EBADF, zy::err::kInvalidSocket},         {ENOTSOCK, zy::err::kInvalidSocket},
    {ENOPROTOOPT, zy::err::kNotSupported},    {EOPNOTSUPP, zy::err::kNotSupported},
    {EPERM, zy::err::kAccessDeniedWin32},     {EACCES, zy::err::kAccessDeniedWin32},
    {ENOMEM, zy::err::kNotEnoughMemory},      {ENOBUFS, zy::err::kNotEnoughMemory},
    {EINVAL, zy::err::kInvalidParameter},
    // clang-format on
};

uint32_t Win32FromErrno(int code)
{
    for (const auto& entry : kWin32ForErrno)
        if (entry.error == code)
            return entry.code;
    return static_cast<uint32_t>(code);
}

int GetIntOption(int fd, int level, int option, int* value)
{
    socklen_t length = sizeof(*value);
    return getsockopt(fd, level, option, value, &length);
}

int SetIntOption(int fd, int level, int option, int value)
{
    return setsockopt(fd, level, option, &value, sizeof(value));
}

// True while the descriptor still holds the socket that joined the flow.
bool IsSameSocket(const FlowSocket& entry)
{
    struct stat info;
    return fstat(static_cast<int>(entry.socket), &info) == 0 && S_ISSOCK(info.st_mode) &&
           info.st_dev == entry.device && info.st_ino == entry.inode;
}

// Reads what a socket is marked with now. 0 or a Win32 code.
uint32_t SaveMarking(unsigned int socket, FlowSocket& entry)
{
    const int fd = static_cast<int>(socket);
    memset(&entry, 0, sizeof(entry));
    entry.socket = socket;
    struct stat info;
    if (fstat(fd, &info) != 0)
        return Win32FromErrno(errno);
    if (!S_ISSOCK(info.st_mode))
        return zy::err::kInvalidSocket;
    entry.device = info.st_dev;
    entry.inode = info.st_ino;
    if (GetIntOption(fd, SOL_SOCKET, SO_DOMAIN, &entry.family) != 0)
        return Win32FromErrno(errno);
    if (entry.family != AF_INET && entry.family != AF_INET6)
        return zy::err::kNotSupported;
    if (entry.family == AF_INET6)
    {
        if (GetIntOption(fd, IPPROTO_IPV6, IPV6_TCLASS, &entry.tclass) != 0)
            return Win32FromErrno(errno);
        int v6Only = 1;
        if (GetIntOption(fd, IPPROTO_IPV6, IPV6_V6ONLY, &v6Only) == 0 && !v6Only)
            entry.savedTos = GetIntOption(fd, IPPROTO_IP, IP_TOS, &entry.tos) == 0;
    }
    else
    {
        if (GetIntOption(fd, IPPROTO_IP, IP_TOS, &entry.tos) != 0)
            return Win32FromErrno(errno);
        entry.savedTos = true;
    }
    if (GetIntOption(fd, SOL_SOCKET, SO_PRIORITY, &entry.priority) != 0)
        return Win32FromErrno(errno);
    uint64_t pacing = 0;
    socklen_t length = sizeof(pacing);
    entry.savedPacing = getsockopt(fd, SOL_SOCKET, SO_MAX_PACING_RATE, &pacing, &length) == 0;
    entry.pacing = length == sizeof(uint32_t) ? static_cast<uint32_t>(pacing) : pacing;
    return 0;
}

// Marks a socket: the DSCP value in the IPv4 TOS / IPv6 traffic class byte
// (ECN bits left to the kernel), then the priority, because setting IP_TOS
// resets the priority on Linux. 0 or a Win32 code.
uint32_t ApplyMarking(const FlowSocket& entry, int dscp, int priority)
{
    const int fd = static_cast<int>(entry.socket);
    const int tos = dscp << 2;
    if (entry.family == AF_INET6)
    {
        if (SetIntOption(fd, IPPROTO_IPV6, IPV6_TCLASS, tos) != 0)
            return Win32FromErrno(errno);
        if (entry.savedTos)
            SetIntOption(fd, IPPROTO_IP, IP_TOS, tos);  // IPv4 traffic of a dual-stack socket
    }
    else if (SetIntOption(fd, IPPROTO_IP, IP_TOS, tos) != 0)
        return Win32FromErrno(errno);
    if (SetIntOption(fd, SOL_SOCKET, SO_PRIORITY, priority) != 0)
    {
        // 7 needs CAP_NET_ADMIN; an unprivileged caller gets the highest
        // priority it may set.
        if (errno != EPERM || priority <= kMaxUnprivilegedPriority ||
            SetIntOption(fd, SOL_SOCKET, SO_PRIORITY, kMaxUnprivilegedPriority) != 0)
            return Win32FromErrno(errno);
    }
    return 0;
}

// Caps the sending rate. 0 or a Win32 code; 50 where the kernel has no pacing.
uint32_t ApplyPacing(FlowSocket& entry, uint64_t bytesPerSecond)
{
    const int fd = static_cast<int>(entry.socket);
    if (!entry.savedPacing)
        return zy::err::kNotSupported;
    if (setsockopt(fd, SOL_SOCKET, SO_MAX_PACING_RATE, &bytesPerSecond, sizeof(bytesPerSecond)) != 0)
    {
        // Kernels before 5.x take the rate as 32 bits only.
        uint32_t narrow = bytesPerSecond > 0xFFFFFFFEu ? 0xFFFFFFFEu : static_cast<uint32_t>(bytesPerSecond);
        if (errno != EINVAL || setsockopt(fd, SOL_SOCKET, SO_MAX_PACING_RATE, &narrow, sizeof(narrow)) != 0)
            return Win32FromErrno(errno);
    }
    entry.pacingChanged = true;
    return 0;
}

// Puts back what the socket had before it joined, unless the descriptor now
// belongs to something else (the socket was closed meanwhile).
void RestoreMarking(const FlowSocket& entry)
{
    if (!IsSameSocket(entry))
        return;
    const int fd = static_cast<int>(entry.socket);
    if (entry.family == AF_INET6)
        SetIntOption(fd, IPPROTO_IPV6, IPV6_TCLASS, entry.tclass);
    if (entry.savedTos)
        SetIntOption(fd, IPPROTO_IP, IP_TOS, entry.tos);
    SetIntOption(fd, SOL_SOCKET, SO_PRIORITY, entry.priority);
    if (entry.pacingChanged)
        setsockopt(fd, SOL_SOCKET, SO_MAX_PACING_RATE, &entry.pacing, sizeof(entry.pacing));
}

bool SocketIsConnected(unsigned int socket)
{
    struct sockaddr_storage peer;
    socklen_t length = sizeof(peer);
    return getpeername(static_cast<int>(socket), reinterpret_cast<struct sockaddr*>(&peer), &length) == 0;
}

// ---- the five calls, as the system would offer them -------------------------

uint32_t CreateHandle(_QOS_VERSION* version, void** handle)
{
    if (version == nullptr || handle == nullptr)
        return zy::err::kInvalidParameter;
    if (version->MajorVersion != QOS_VERSION_MAJOR_CURRENT || version->MinorVersion != QOS_VERSION_MINOR_CURRENT)
        return zy::err::kInvalidParameter;
    QosHandle* created = new (std::nothrow) QosHandle;
    if (created == nullptr || !RegisterHandle(created))
    {
        delete created;
        return zy::err::kNotEnoughMemory;
    }
    *handle = created;
    return 0;
}

uint32_t CloseHandle(void* handle)
{
    std::atomic<QosHandle*>* slot = FindSlot(handle);
    QosHandle* qos = static_cast<QosHandle*>(handle);
    // Only the close that empties the slot owns the handle.
    if (slot == nullptr || !slot->compare_exchange_strong(qos, nullptr, std::memory_order_acq_rel))
        return zy::err::kInvalidHandle;
    for (auto& flow : qos->flows)
        for (const FlowSocket& entry : flow.second.sockets)
            RestoreMarking(entry);
    delete qos;
    return 0;
}

uint32_t AddSocketToFlow(void* handle, unsigned int socket, sockaddr* destination, _QOS_TRAFFIC_TYPE trafficType,
                         unsigned long flags, unsigned long* flowId)
{
    QosHandle* qos = FindHandle(handle);
    if (qos == nullptr)
        return zy::err::kInvalidHandle;
    if (flowId == nullptr || static_cast<unsigned>(trafficType) > QOSTrafficTypeControl ||
        (flags & ~static_cast<unsigned long>(QOS_NON_ADAPTIVE_FLOW)) != 0)
        return zy::err::kInvalidParameter;
    for (const auto& flow : qos->flows)
        for (const FlowSocket& entry : flow.second.sockets)
            if (entry.socket == socket && IsSameSocket(entry))
                return zy::err::kInvalidParameter;  // already in a flow of this handle

    FlowSocket entry;
    uint32_t error = SaveMarking(socket, entry);
    if (error)
        return error;
    // Where the traffic goes: the destination, or the peer of a connected socket.
    if (destination == nullptr ? !SocketIsConnected(socket)
                               : destination->sa_family != AF_INET && destination->sa_family != AF_INET6)
        return zy::err::kInvalidParameter;

    Flow* flow = nullptr;
    Flow created;
    if (*flowId != 0)
    {
        auto found = qos->flows.find(*flowId);
        if (found == qos->flows.end())
            return zy::err::kNotFound;
        if (!found->second.nonAdaptive)
            return zy::err::kInvalidParameter;  // only non-adaptive flows carry several sockets
        flow = &found->second;
    }
    else
    {
        created.dscp = kTrafficMarking[trafficType].dscp;
        created.priority = kTrafficMarking[trafficType].priority;
        created.nonAdaptive = (flags & QOS_NON_ADAPTIVE_FLOW) != 0;
        created.rateSet = false;
        created.bytesPerSecond = 0;
        flow = &created;
    }
    error = ApplyMarking(entry, flow->dscp, flow->priority);
    if (!error && flow->rateSet)
        error = ApplyPacing(entry, flow->bytesPerSecond);
    if (error)
    {
        RestoreMarking(entry);
        return error;
    }
    if (*flowId == 0)
    {
        unsigned long id = g_nextFlowId.fetch_add(1, std::memory_order_relaxed);  // never 0: that means "a new flow"
        created.sockets.push_back(entry);
        qos->flows.emplace(id, std::move(created));
        *flowId = id;
    }
    else
        flow->sockets.push_back(entry);
    return 0;
}

uint32_t SetFlow(void* handle, unsigned long flowId, _QOS_SET_FLOW operation, unsigned long size, void* buffer,
                 unsigned long flags, _OVERLAPPED* overlapped)
{
    QosHandle* qos = FindHandle(handle);
    if (qos == nullptr)
        return zy::err::kInvalidHandle;
    auto found = qos->flows.find(flowId);
    if (found == qos->flows.end())
        return zy::err::kNotFound;
    if (overlapped != nullptr)
        return zy::err::kNotSupported;  // changes are made at once; there is no asynchronous completion
    if (buffer == nullptr || flags != 0)
        return zy::err::kInvalidParameter;
    Flow& flow = found->second;
    switch (operation)
    {
    case QOSSetTrafficType:
    {
        if (size < sizeof(QOS_TRAFFIC_TYPE))
            return zy::err::kInvalidParameter;
        const unsigned type = static_cast<unsigned>(*static_cast<const QOS_TRAFFIC_TYPE*>(buffer));
        if (type > QOSTrafficTypeControl)
            return zy::err::kInvalidParameter;
        flow.dscp = kTrafficMarking[type].dscp;
        flow.priority = kTrafficMarking[type].priority;
        break;
    }
    case QOSSetOutgoingDSCPValue:
    {
        // A DWORD on Windows: four bytes are enough here as well.
        unsigned long value;
        if (size >= sizeof(unsigned long))
            value = *static_cast<const unsigned long*>(buffer);
        else if (size >= sizeof(uint32_t))
            value = *static_cast<const uint32_t*>(buffer);
        else
            return zy::err::kInvalidParameter;
        if (value > 63)
            return zy::err::kInvalidParameter;
        flow.dscp = static_cast<int>(value);
        break;
    }
    case QOSSetOutgoingRate:
    {
        if (size < sizeof(QOS_FLOWRATE_OUTGOING))
            return zy::err::kInvalidParameter;
        const QOS_FLOWRATE_OUTGOING* rate = static_cast<const QOS_FLOWRATE_OUTGOING*>(buffer);
        if (rate->Bandwidth == 0)
            return zy::err::kInvalidParameter;
        for (FlowSocket& entry : flow.sockets)
        {
            uint32_t error = ApplyPacing(entry, (rate->Bandwidth + 7) / 8);
            if (error)
                return error;
        }
        flow.rateSet = true;
        flow.bytesPerSecond = (rate->Bandwidth + 7) / 8;
        return 0;
    }
    default:
        return zy::err::kInvalidParameter;
    }
    for (const FlowSocket& entry : flow.sockets)
    {
        uint32_t error = ApplyMarking(entry, flow.dscp, flow.priority);
        if (error)
            return error;
    }
    return 0;
}

uint32_t RemoveSocketFromFlow(void* handle, unsigned int socket, unsigned long flowId, unsigned long flags)
{
    QosHandle* qos = FindHandle(handle);
    if (qos == nullptr)
        return zy::err::kInvalidHandle;
    if (flags != 0)
        return zy::err::kInvalidParameter;
    auto found = qos->flows.find(flowId);
    if (found == qos->flows.end())
        return zy::err::kNotFound;
    std::vector<FlowSocket>& sockets = found->second.sockets;
    for (auto entry = sockets.begin(); entry != sockets.end(); ++entry)
    {
        if (entry->socket != socket)
            continue;
        RestoreMarking(*entry);
        sockets.erase(entry);
        // A flow ends with its last socket.
        if (sockets.empty())
            qos->flows.erase(found);
        return 0;
    }
    return zy::err::kNotFound;
}
}  // namespace

namespace zy::os
{
namespace
{
QosResult Outcome(uint32_t error)
{
    return QosResult{error ? QosResult::QOS_FAILED : QosResult::QOS_DONE, error};
}
}  // namespace

QosResult QosCreateHandle(_QOS_VERSION* version, void** handle)
{
    return Outcome(CreateHandle(version, handle));
}

QosResult QosCloseHandle(void* handle)
{
    return Outcome(CloseHandle(handle));
}

QosResult QosSetFlow(void* handle, unsigned long flowId, _QOS_SET_FLOW operation, unsigned long size, void* buffer,
                     unsigned long flags, _OVERLAPPED* overlapped)
{
    return Outcome(SetFlow(handle, flowId, operation, size, buffer, flags, overlapped));
}

QosResult QosAddSocketToFlow(void* handle, unsigned int socket, sockaddr* destination, _QOS_TRAFFIC_TYPE trafficType,
                             unsigned long flags, unsigned long* flowId)
{
    return Outcome(AddSocketToFlow(handle, socket, destination, trafficType, flags, flowId));
}

QosResult QosRemoveSocketFromFlow(void* handle, unsigned int socket, unsigned long flowId, unsigned long flags)
{
    return Outcome(RemoveSocketFromFlow(handle, socket, flowId, flags));
}
}  // namespace zy::os
