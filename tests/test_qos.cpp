// QoS flows through FXQWaveDll. On Linux: sockets in flows carry their
// traffic type's DSCP value and priority, flows change and end cleanly.
// On Windows: the system's own qWAVE module is the one loaded (the
// stub-module scenarios are in tests/qwave).
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "ZyNetwork/QosWaveApi.h"
#include "support/TestEnv.h"

#if defined(_WIN32)
#include <winsock2.h>
#include <windows.h>
#else
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
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

// What each traffic type puts on the wire on Windows (DSCP) and its 802.1p
// priority, in QOS_TRAFFIC_TYPE order.
const int kDscp[] = {0, 8, 40, 40, 56, 56};
const int kPriority[] = {0, 2, 5, 5, 7, 7};
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

// Each traffic type marks sockets of both families and both kinds; taking a
// socket out of its flow puts its own marking back.
TEST(QosLinux, TrafficTypesMarkSocketsAndRemovalRestores)
{
    QosHandle qos;
    ASSERT_NE(nullptr, qos.handle);
    for (int family : {AF_INET, AF_INET6})
        for (bool udp : {true, false})
        {
            SCOPED_TRACE(std::string(family == AF_INET ? "IPv4 " : "IPv6 ") + (udp ? "UDP" : "TCP"));
            zytest::SocketPair pair(family == AF_INET ? ZYNET_AF_INET : ZYNET_AF_INET6, udp);
            ASSERT_TRUE(pair.Ok());
            setsockopt(pair.client, family == AF_INET ? IPPROTO_IP : IPPROTO_IPV6,
                       family == AF_INET ? IP_TOS : IPV6_TCLASS, &kOldTos, sizeof(kOldTos));
            setsockopt(pair.client, SOL_SOCKET, SO_PRIORITY, &kOldPriority, sizeof(kOldPriority));
            for (int traffic = QOSTrafficTypeBestEffort; traffic <= QOSTrafficTypeControl; ++traffic)
            {
                unsigned long flowId = 0;
                ASSERT_FALSE(FXQWaveDll::QOSAddSocketToFlow(qos.handle, pair.client, nullptr,
                                                            static_cast<QOS_TRAFFIC_TYPE>(traffic), 0, &flowId)
                                 .IsError());
                EXPECT_EQ(kDscp[traffic] << 2, SocketTos(pair.client, family)) << "traffic type " << traffic;
                EXPECT_EQ(kPriority[traffic], GetInt(pair.client, SOL_SOCKET, SO_PRIORITY)) << "traffic type " << traffic;
                ASSERT_FALSE(FXQWaveDll::QOSRemoveSocketFromFlow(qos.handle, pair.client, flowId, 0).IsError());
                EXPECT_EQ(kOldTos, SocketTos(pair.client, family));
                EXPECT_EQ(kOldPriority, GetInt(pair.client, SOL_SOCKET, SO_PRIORITY));
            }
        }
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

// Threads with handles of their own never wait for each other: each gets a
// handle, a flow id no other thread got, and closes only its own handle.
TEST(QosLinux, HandlesOfManyThreadsAtOnce)
{
    const int kThreads = 8;
    std::vector<unsigned long> ids(kThreads * 20, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t, &ids] {
            zytest::SocketPair pair(ZYNET_AF_INET, true);
            for (int round = 0; round < 20; ++round)
            {
                QosHandle qos;
                ZYTEST_EXPECT_OK(FXQWaveDll::QOSAddSocketToFlow(qos.handle, pair.client, nullptr,
                                                                QOSTrafficTypeVoice, 0, &ids[t * 20 + round]));
                ZYTEST_EXPECT_OK(FXQWaveDll::QOSCloseHandle(qos.handle));
                EXPECT_TRUE(FXQWaveDll::QOSCloseHandle(qos.handle).Is(6)) << "closed once only";
                qos.handle = nullptr;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    std::set<unsigned long> distinct(ids.begin(), ids.end());
    EXPECT_EQ(ids.size(), distinct.size());
    EXPECT_EQ(0u, distinct.count(0));
}

TEST(QosLinux, FailuresCarryWindowsCodesAndMessages)
{
    QOS_VERSION badVersion = {2, 0};
    void* handle = nullptr;
    CZyError error = FXQWaveDll::QOSCreateHandle(&badVersion, &handle);
    EXPECT_TRUE(error.Is(87));
    EXPECT_EQ("Failed to create QOS handle", error.GetErrorMessage());
    EXPECT_STREQ("ZyNetwork/Posix/QosPosix", error.GetItems()[0]->Location().File());
    EXPECT_STREQ("FXQWaveDll::QOSCreateHandle", error.GetItems()[0]->Location().Function());
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
