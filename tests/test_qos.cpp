// QoS flows through FXQWaveDll. On Linux: sockets in flows carry their
// traffic type's DSCP value (checked on the wire in a private network
// namespace, and through the socket options), flows change and end cleanly.
// On Windows: the system's own qWAVE module is the one loaded (the
// stub-module scenarios are in tests/qwave).
#include <gtest/gtest.h>

#include <string.h>

#include <string>

#include "ZyNetwork/QosWaveApi.h"
#include "support/NetNamespace.h"
#include "support/TestEnv.h"

#if defined(_WIN32)
#include <winsock2.h>
#include <windows.h>
#else
#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace
{
#if defined(_WIN32)

// The system's own module is found under its default name. (Wine's fails
// QOSCreateHandle; its other entry points abort the process, so only this
// one is called. The stub-module scenarios check that failures pass on.)
TEST(QosSystemModule, TheDefaultModuleIsFound)
{
    QOS_VERSION version = {1, 0};
    void* handle = nullptr;
    CZyError error = FXQWaveDll::QOSCreateHandle(&version, &handle);
    EXPECT_FALSE(error.Is(ERROR_NOT_SUPPORTED)) << error.AsString();
    if (!error.IsError())
        FXQWaveDll::QOSCloseHandle(handle);
    EXPECT_TRUE(!error.IsError() || error.GetErrorMessage() == "Failed to create QOS handle") << error.AsString();
}

#else

struct Marking
{
    int dscp;
    int priority;
};

// What each traffic type puts on the wire on Windows (DSCP) and its 802.1p
// priority, in QOS_TRAFFIC_TYPE order.
const Marking kExpected[] = {{0, 0}, {8, 2}, {40, 5}, {40, 5}, {56, 7}, {56, 7}};
const int kOldTos = 18 << 2;  // AF21: a marking no traffic type uses
const int kOldPriority = 1;

int GetInt(int fd, int level, int option)
{
    int value = -1;
    socklen_t length = sizeof(value);
    EXPECT_EQ(0, getsockopt(fd, level, option, &value, &length));
    return value;
}

// The TOS / traffic class byte a socket sends with.
int SocketTos(int fd, int family)
{
    return family == AF_INET6 ? GetInt(fd, IPPROTO_IPV6, IPV6_TCLASS) : GetInt(fd, IPPROTO_IP, IP_TOS);
}

// A QoS handle, closed at the end of the test unless the test closed it.
struct QosHandle
{
    void* handle = nullptr;
    QosHandle()
    {
        QOS_VERSION version = {1, 0};
        ZYTEST_EXPECT_OK(FXQWaveDll::QOSCreateHandle(&version, &handle));
    }
    ~QosHandle()
    {
        if (handle)
            FXQWaveDll::QOSCloseHandle(handle);
    }
};

// Reads packets from a packet socket until one carries `marker`; returns the
// DSCP value of its IP header, or -1.
int CapturedDscp(int capture, const std::string& marker)
{
    unsigned char packet[65536];
    for (;;)
    {
        pollfd wait = {capture, POLLIN, 0};
        if (poll(&wait, 1, 5000) <= 0)
            return -1;
        ssize_t got = recv(capture, packet, sizeof(packet), 0);
        if (got <= 0)
            return -1;
        if (memmem(packet, static_cast<size_t>(got), marker.data(), marker.size()) == nullptr)
            continue;
        if ((packet[0] >> 4) == 4)
            return packet[1] >> 2;
        if ((packet[0] >> 4) == 6)
            return (((packet[0] & 0x0F) << 4) | (packet[1] >> 4)) >> 2;
        return -1;
    }
}

std::string CheckWire(int capture, int family, int type)
{
    // `client` is the socket marked.
    zytest::SocketPair pair(family == AF_INET ? ZYNET_AF_INET : ZYNET_AF_INET6, type == SOCK_DGRAM);
    if (!pair.Ok())
        return "no loopback socket pair";
    setsockopt(pair.client, family == AF_INET ? IPPROTO_IP : IPPROTO_IPV6, family == AF_INET ? IP_TOS : IPV6_TCLASS,
               &kOldTos, sizeof(kOldTos));
    setsockopt(pair.client, SOL_SOCKET, SO_PRIORITY, &kOldPriority, sizeof(kOldPriority));
    const std::string what = std::string(family == AF_INET ? "IPv4 " : "IPv6 ") + (type == SOCK_DGRAM ? "UDP" : "TCP");
    QosHandle qos;
    void* const handle = qos.handle;
    std::string failure = handle ? "" : "QOSCreateHandle failed";
    for (int traffic = QOSTrafficTypeBestEffort; traffic <= QOSTrafficTypeControl && failure.empty(); ++traffic)
    {
        unsigned long flowId = 0;
        if (FXQWaveDll::QOSAddSocketToFlow(handle, pair.client, nullptr, static_cast<QOS_TRAFFIC_TYPE>(traffic), 0,
                                           &flowId)
                .IsError())
            failure = what + ": QOSAddSocketToFlow failed";
        if (failure.empty() && GetInt(pair.client, SOL_SOCKET, SO_PRIORITY) != kExpected[traffic].priority)
            failure = what + ": traffic type " + std::to_string(traffic) + " set another priority";
        const std::string during = "zyqos-" + what + "-in-" + std::to_string(traffic);
        const std::string after = "zyqos-" + what + "-out-" + std::to_string(traffic);
        send(pair.client, during.data(), during.size(), 0);
        int dscp = CapturedDscp(capture, during);
        if (failure.empty() && dscp != kExpected[traffic].dscp)
            failure = what + ": traffic type " + std::to_string(traffic) + " sent DSCP " + std::to_string(dscp);
        FXQWaveDll::QOSRemoveSocketFromFlow(handle, pair.client, flowId, 0);
        send(pair.client, after.data(), after.size(), 0);
        dscp = CapturedDscp(capture, after);
        if (failure.empty() && dscp != kOldTos >> 2)
            failure = what + ": after removal DSCP " + std::to_string(dscp);
        if (failure.empty() && GetInt(pair.client, SOL_SOCKET, SO_PRIORITY) != kOldPriority)
            failure = what + ": the old priority was not restored";
    }
    return failure;
}

TEST(QosLinux, PacketsOnTheWireCarryTheTrafficTypesDscp)
{
    if (!zytest::CanUseNetNamespaces())
        GTEST_SKIP() << "needs root and network namespaces to capture packets";
    std::string result = zytest::RunInNetNamespace([] {
        int capture = socket(AF_PACKET, SOCK_DGRAM, htons(ETH_P_ALL));
        if (capture < 0)
            return std::string("packet socket: ") + strerror(errno);
        sockaddr_ll link = {};
        link.sll_family = AF_PACKET;
        link.sll_protocol = htons(ETH_P_ALL);
        link.sll_ifindex = static_cast<int>(if_nametoindex("lo"));
        std::string failure;
        if (bind(capture, reinterpret_cast<sockaddr*>(&link), sizeof(link)) != 0)
            failure = std::string("bind packet socket: ") + strerror(errno);
        for (int family : {AF_INET, AF_INET6})
            for (int type : {SOCK_DGRAM, SOCK_STREAM})
                if (failure.empty())
                    failure = CheckWire(capture, family, type);
        close(capture);
        return failure;
    });
    EXPECT_EQ("", result);
}

TEST(QosLinux, FlowChangesRateAndSharedFlows)
{
    zytest::SocketPair first(ZYNET_AF_INET), second(ZYNET_AF_INET6, true);
    ASSERT_TRUE(first.Ok() && second.Ok());
    uint64_t oldPacing = 0;
    socklen_t length = sizeof(oldPacing);
    ASSERT_EQ(0, getsockopt(first.client, SOL_SOCKET, SO_MAX_PACING_RATE, &oldPacing, &length));

    QosHandle qos;
    unsigned long flowId = 0;
    ASSERT_FALSE(FXQWaveDll::QOSAddSocketToFlow(qos.handle, first.client, nullptr, QOSTrafficTypeBackground,
                                                QOS_NON_ADAPTIVE_FLOW, &flowId)
                     .IsError());
    unsigned long sharedId = flowId;
    ASSERT_FALSE(
        FXQWaveDll::QOSAddSocketToFlow(qos.handle, second.client, nullptr, QOSTrafficTypeVoice, 0, &sharedId).IsError());
    EXPECT_EQ(flowId, sharedId);
    EXPECT_EQ(8 << 2, SocketTos(second.client, AF_INET6)) << "a shared flow keeps its own marking";

    QOS_TRAFFIC_TYPE audio = QOSTrafficTypeAudioVideo;
    ASSERT_FALSE(FXQWaveDll::QOSSetFlow(qos.handle, flowId, QOSSetTrafficType, sizeof(audio), &audio, 0, nullptr)
                     .IsError());
    EXPECT_EQ(40 << 2, SocketTos(first.client, AF_INET));
    EXPECT_EQ(40 << 2, SocketTos(second.client, AF_INET6));
    unsigned long dscp = 46;
    ASSERT_FALSE(
        FXQWaveDll::QOSSetFlow(qos.handle, flowId, QOSSetOutgoingDSCPValue, sizeof(dscp), &dscp, 0, nullptr).IsError());
    EXPECT_EQ(46 << 2, SocketTos(first.client, AF_INET));
    EXPECT_EQ(5, GetInt(first.client, SOL_SOCKET, SO_PRIORITY)) << "the DSCP value alone leaves the priority";
    dscp = 64;
    EXPECT_TRUE(FXQWaveDll::QOSSetFlow(qos.handle, flowId, QOSSetOutgoingDSCPValue, sizeof(dscp), &dscp, 0, nullptr)
                    .Is(87));

    QOS_FLOWRATE_OUTGOING rate = {8000000, QOSShapeOnly, QOSFlowRateNotApplicable};
    CZyError error = FXQWaveDll::QOSSetFlow(qos.handle, flowId, QOSSetOutgoingRate, sizeof(rate), &rate, 0, nullptr);
    if (error.Is(50))
        EXPECT_EQ("Failed to set QOS flow", error.GetErrorMessage());  // a kernel without pacing
    else
    {
        ASSERT_FALSE(error.IsError()) << error.AsString();
        uint64_t pacing = 0;
        length = sizeof(pacing);
        ASSERT_EQ(0, getsockopt(first.client, SOL_SOCKET, SO_MAX_PACING_RATE, &pacing, &length));
        EXPECT_EQ(1000000u, pacing);
    }

    // Closing the handle puts every socket back.
    ASSERT_FALSE(FXQWaveDll::QOSCloseHandle(qos.handle).IsError());
    qos.handle = nullptr;
    EXPECT_EQ(0, SocketTos(first.client, AF_INET));
    EXPECT_EQ(0, SocketTos(second.client, AF_INET6));
    EXPECT_EQ(0, GetInt(first.client, SOL_SOCKET, SO_PRIORITY));
    uint64_t pacing = 0;
    length = sizeof(pacing);
    ASSERT_EQ(0, getsockopt(first.client, SOL_SOCKET, SO_MAX_PACING_RATE, &pacing, &length));
    EXPECT_EQ(oldPacing, pacing);
}

TEST(QosLinux, FailuresCarryWindowsCodesAndMessages)
{
    QOS_VERSION badVersion = {2, 0};
    void* handle = nullptr;
    CZyError error = FXQWaveDll::QOSCreateHandle(&badVersion, &handle);
    EXPECT_TRUE(error.Is(87));
    EXPECT_EQ("Failed to create QOS handle", error.GetErrorMessage());
    int bogus = 0;
    error = FXQWaveDll::QOSCloseHandle(&bogus);
    EXPECT_TRUE(error.Is(6));
    EXPECT_EQ("Failed to close QOS handle", error.GetErrorMessage());

    QosHandle qos;
    unsigned long flowId = 0;
    int notOpen = 1000;
    while (fcntl(notOpen, F_GETFD) != -1)
        ++notOpen;
    error = FXQWaveDll::QOSAddSocketToFlow(qos.handle, notOpen, nullptr, QOSTrafficTypeVoice, 0, &flowId);
    EXPECT_TRUE(error.Is(10038));
    EXPECT_EQ("Failed to add socket (" + std::to_string(notOpen) + ") to the flow", error.GetErrorMessage());

    int local = socket(AF_UNIX, SOCK_DGRAM, 0);
    EXPECT_TRUE(FXQWaveDll::QOSAddSocketToFlow(qos.handle, local, nullptr, QOSTrafficTypeVoice, 0, &flowId).Is(50));
    close(local);

    // An unconnected socket needs the destination.
    int unconnected = socket(AF_INET, SOCK_DGRAM, 0);
    EXPECT_TRUE(
        FXQWaveDll::QOSAddSocketToFlow(qos.handle, unconnected, nullptr, QOSTrafficTypeVoice, 0, &flowId).Is(87));
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(9);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    flowId = 0;
    ASSERT_FALSE(FXQWaveDll::QOSAddSocketToFlow(qos.handle, unconnected, reinterpret_cast<sockaddr*>(&to),
                                                QOSTrafficTypeVoice, 0, &flowId)
                     .IsError());
    // Adaptive flows carry one socket.
    zytest::SocketPair other(ZYNET_AF_INET, true);
    ASSERT_TRUE(other.Ok());
    unsigned long joined = flowId;
    EXPECT_TRUE(
        FXQWaveDll::QOSAddSocketToFlow(qos.handle, other.client, nullptr, QOSTrafficTypeVoice, 0, &joined).Is(87));

    QOS_TRAFFIC_TYPE voice = QOSTrafficTypeVoice;
    error = FXQWaveDll::QOSSetFlow(qos.handle, flowId + 1000, QOSSetTrafficType, sizeof(voice), &voice, 0, nullptr);
    EXPECT_TRUE(error.Is(1168));
    EXPECT_EQ("Failed to set QOS flow", error.GetErrorMessage());

    ASSERT_FALSE(FXQWaveDll::QOSRemoveSocketFromFlow(qos.handle, unconnected, flowId, 0).IsError());
    error = FXQWaveDll::QOSRemoveSocketFromFlow(qos.handle, unconnected, flowId, 0);
    EXPECT_TRUE(error.Is(1168));
    EXPECT_EQ("Failed to remove socket (" + std::to_string(unconnected) + ") from the flow", error.GetErrorMessage());
    close(unconnected);
}

#endif
}  // namespace
