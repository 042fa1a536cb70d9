// The QoS wrappers over a qWAVE module on Windows, one scenario per process
// (the module is loaded once per process; tests/scripts/qwave.cmake).
#include <gtest/gtest.h>

#include <winsock2.h>
#include <windows.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "ZyNetwork/QosWaveApi.h"

namespace
{
const char* const kFunctions[] = {"QOSCreateHandle", "QOSCloseHandle", "QOSSetFlow", "QOSAddSocketToFlow",
                                  "QOSRemoveSocketFromFlow"};
enum Function
{
    kCreate,
    kClose,
    kSetFlow,
    kAdd,
    kRemove
};

bool InScenario(const char* name)
{
    const char* scenario = std::getenv("ZYTEST_QWAVE_SCENARIO");
    return scenario != nullptr && std::string(scenario) == name;
}

#define REQUIRE_SCENARIO(name)          \
    if (!InScenario(name))              \
    GTEST_SKIP() << "runs only as the ctest scenario " name

// Calls wrapper `function` with arguments that succeed on the stub module.
CZyError CallWrapper(int function)
{
    QOS_VERSION version = {1, 0};
    void* handle = nullptr;
    unsigned long flowId = 0;
    QOS_TRAFFIC_TYPE type = QOSTrafficTypeVoice;
    switch (function)
    {
    case kCreate:
        return FXQWaveDll::QOSCreateHandle(&version, &handle);
    case kClose:
        return FXQWaveDll::QOSCloseHandle(reinterpret_cast<void*>(0x5157));
    case kSetFlow:
        return FXQWaveDll::QOSSetFlow(reinterpret_cast<void*>(0x5157), 7, QOSSetTrafficType, sizeof(type), &type, 0,
                                      nullptr);
    case kAdd:
        return FXQWaveDll::QOSAddSocketToFlow(reinterpret_cast<void*>(0x5157), 42, nullptr, type, 0, &flowId);
    default:
        return FXQWaveDll::QOSRemoveSocketFromFlow(reinterpret_cast<void*>(0x5157), 42, 7, 0);
    }
}

HMODULE StubModule()
{
    const char* name = std::getenv("ZYNET_QWAVE_MODULE");
    return name ? GetModuleHandleA(name) : nullptr;
}

template <class Fn>
Fn StubExport(const char* name)
{
    return reinterpret_cast<Fn>(reinterpret_cast<void (*)()>(GetProcAddress(StubModule(), name)));
}

long StubCalls(int function)
{
    LONG (*calls)(int) = StubExport<LONG (*)(int)>("ZyQwaveStubCalls");
    return calls ? calls(function) : -1;
}

void ExpectNotSupported(const CZyError& error, const char* function)
{
    EXPECT_TRUE(error.Is(50)) << error.AsString();
    EXPECT_EQ(EErrorKind::Win32, error.GetErrorKind());
    EXPECT_EQ(std::string("Not supported on this system, Group=[Qwave], Function=[") + function + "]",
              error.GetErrorMessage());
    ASSERT_TRUE(error.IsError());
    EXPECT_STREQ("ZyNetwork/Windows/QosWaveApi", error.GetItems()[0]->Location().File());
    EXPECT_EQ(std::string("FXQWaveDll::") + function, error.GetItems()[0]->Location().Function());
}

TEST(QwaveStubModule, EveryWrapperReachesTheModule)
{
    REQUIRE_SCENARIO("stub");
    for (int function = kCreate; function <= kRemove; ++function)
    {
        CZyError error = CallWrapper(function);
        EXPECT_FALSE(error.IsError()) << kFunctions[function] << ": " << error.AsString();
    }
    ASSERT_NE(nullptr, StubModule()) << "the module named by ZYNET_QWAVE_MODULE is loaded";
    for (int function = kCreate; function <= kRemove; ++function)
        EXPECT_EQ(1, StubCalls(function)) << kFunctions[function];

    QOS_VERSION version = {1, 0};
    void* handle = nullptr;
    ASSERT_FALSE(FXQWaveDll::QOSCreateHandle(&version, &handle).IsError());
    EXPECT_EQ(reinterpret_cast<void*>(0x5157), handle);
    unsigned long flowId = 0;
    ASSERT_FALSE(FXQWaveDll::QOSAddSocketToFlow(handle, 77, nullptr, QOSTrafficTypeVoice, 0, &flowId).IsError());
    EXPECT_EQ(1077u, flowId);
}

TEST(QwaveStubModule, FailuresCarryTheModulesCodeAndTheWrappersMessage)
{
    REQUIRE_SCENARIO("stub");
    CZyError error = FXQWaveDll::QOSCreateHandle(nullptr, nullptr);
    EXPECT_TRUE(error.Is(ERROR_INVALID_PARAMETER)) << error.AsString();
    EXPECT_EQ("Failed to create QOS handle", error.GetErrorMessage());
    EXPECT_STREQ("ZyNetwork/Windows/QosWaveApi", error.GetItems()[0]->Location().File());

    error = FXQWaveDll::QOSCloseHandle(nullptr);
    EXPECT_TRUE(error.Is(ERROR_INVALID_HANDLE)) << error.AsString();
    EXPECT_EQ("Failed to close QOS handle", error.GetErrorMessage());

    QOS_TRAFFIC_TYPE type = QOSTrafficTypeVoice;
    error = FXQWaveDll::QOSSetFlow(nullptr, 0, QOSSetTrafficType, sizeof(type), &type, 0, nullptr);
    EXPECT_TRUE(error.Is(ERROR_NOT_FOUND)) << error.AsString();
    EXPECT_EQ("Failed to set QOS flow", error.GetErrorMessage());

    unsigned long flowId = 0;
    error = FXQWaveDll::QOSAddSocketToFlow(nullptr, 123, nullptr, QOSTrafficTypeVoice, 0, &flowId);
    EXPECT_TRUE(error.Is(WSAENOTSOCK)) << error.AsString();
    EXPECT_EQ("Failed to add socket (123) to the flow", error.GetErrorMessage());
    EXPECT_EQ(EErrorKind::Win32, error.GetErrorKind());

    error = FXQWaveDll::QOSRemoveSocketFromFlow(nullptr, 123, 1, 0);
    EXPECT_TRUE(error.Is(ERROR_NOT_FOUND)) << error.AsString();
    EXPECT_EQ("Failed to remove socket (123) from the flow", error.GetErrorMessage());
}

TEST(QwaveStubModule, SocketHandlesAreWidenedForTheModule)
{
    REQUIRE_SCENARIO("stub");
    UINT_PTR (*lastSocket)() = StubExport<UINT_PTR (*)()>("ZyQwaveStubLastSocket");
    ASSERT_NE(nullptr, lastSocket);
    unsigned long flowId = 0;
    FXQWaveDll::QOSAddSocketToFlow(nullptr, 0xFFFFFFFFu, nullptr, QOSTrafficTypeVoice, 0, &flowId);
    EXPECT_EQ(static_cast<UINT_PTR>(INVALID_SOCKET), lastSocket());
    FXQWaveDll::QOSRemoveSocketFromFlow(nullptr, 0x80000001u, 1, 0);
    EXPECT_EQ(static_cast<UINT_PTR>(0x80000001u), lastSocket());
}

// Many first calls at once from several threads load the module once.
TEST(QwaveStubModule, LoadedOnceAcrossCallsAndThreads)
{
    REQUIRE_SCENARIO("once");
    ASSERT_EQ(nullptr, StubModule()) << "nothing has loaded the module yet";
    const int kThreads = 8;
    const int kCallsPerThread = 25;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < kCallsPerThread; ++i)
                CallWrapper((t + i) % 5);
        });
    for (std::thread& thread : threads)
        thread.join();

    HMODULE module = StubModule();
    ASSERT_NE(nullptr, module);
    long total = 0;
    for (int function = kCreate; function <= kRemove; ++function)
        total += StubCalls(function);
    EXPECT_EQ(kThreads * kCallsPerThread, total);
    LONG (*attachCount)() = StubExport<LONG (*)()>("ZyQwaveStubAttachCount");
    ASSERT_NE(nullptr, attachCount);
    EXPECT_EQ(1, attachCount());

    // One load means one reference: a single FreeLibrary unloads the module.
    FreeLibrary(module);
    EXPECT_EQ(nullptr, StubModule()) << "the wrappers loaded the module more than once";
}

TEST(QwaveMissingFunction, OnlyThatWrapperIsNotSupported)
{
    REQUIRE_SCENARIO("missing-function");
    ExpectNotSupported(CallWrapper(kSetFlow), "QOSSetFlow");
    for (int function : {kCreate, kClose, kAdd, kRemove})
    {
        CZyError error = CallWrapper(function);
        EXPECT_FALSE(error.IsError()) << kFunctions[function] << ": " << error.AsString();
        EXPECT_EQ(1, StubCalls(function)) << kFunctions[function];
    }
    // Asking again does not retry the resolution.
    ExpectNotSupported(CallWrapper(kSetFlow), "QOSSetFlow");
}

TEST(QwaveMissingModule, EveryWrapperIsNotSupported)
{
    REQUIRE_SCENARIO("missing-module");
    for (int round = 0; round < 2; ++round)
        for (int function = kCreate; function <= kRemove; ++function)
        {
            SCOPED_TRACE(kFunctions[function]);
            ExpectNotSupported(CallWrapper(function), kFunctions[function]);
        }
}
}  // namespace
