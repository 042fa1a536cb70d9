// The tour: a walk through the library on loopback that needs no setup.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Platform.h"
#include "Tool.h"
#include "Tour.h"
#include "ZyNetwork/ZyIPAddr.h"
#include "ZyNetwork/ZySockAddr.h"
#include "ZyNetwork/ZySocket.h"
#include "ZyNetwork/ZySocketSelector.h"
#include "ZyUtils/ZyTime.h"

static const char kZyFile[] = "tools/zynet/CmdTour";

namespace zytool
{
namespace
{
const int kLimitSeconds = kTourLimitSeconds;

// Closes the sockets it was given when the step ends, however it ends.
class SocketCloser
{
public:
    ~SocketCloser()
    {
        for (CZySocket* socket : m_sockets)
            socket->Close();
    }
    void Add(CZySocket& socket) { m_sockets.push_back(&socket); }

private:
    std::vector<CZySocket*> m_sockets;
};

// Sends `message` from one socket and reads it back on the other, then the
// reply the other way, each with the tour's time limit.
CZyError EchoOnce(CZySocket& client, CZySocket& server, const std::string& message, std::string& detail)
{
    const int length = static_cast<int>(message.size());
    std::vector<char> buffer(message.size());
    int timedOut = 0;
    int count = 0;
    CZyError error = client.SendWithTimeOut(message.data(), length, kLimitSeconds, &timedOut, 0, &count);
    if (error.IsError())
        return error.Push(ZY_LOC("zytool::EchoOnce"), "request send failed");
    error = server.RecvWithTimeout(buffer.data(), length, kLimitSeconds, &timedOut, 0, &count);
    if (error.IsError())
        return error.Push(ZY_LOC("zytool::EchoOnce"), "request receive failed");
    error = server.SendWithTimeOut(buffer.data(), count, kLimitSeconds, &timedOut, 0, &count);
    if (error.IsError())
        return error.Push(ZY_LOC("zytool::EchoOnce"), "echo send failed");
    std::fill(buffer.begin(), buffer.end(), '\0');
    error = client.RecvWithTimeout(buffer.data(), length, kLimitSeconds, &timedOut, 0, &count);
    if (error.IsError())
        return error.Push(ZY_LOC("zytool::EchoOnce"), "echo receive failed");
    if (std::string(buffer.data(), static_cast<size_t>(count)) != message)
        return FXErrorUtil::ErrorInt(ZY_LOC("zytool::EchoOnce"), 1, "the echo differs from the request");
    detail = FXString::Format("%d bytes echoed", length);
    return CZyError::Success();
}

StepResult SocketPairEcho()
{
    CZySocket first;
    CZySocket second;
    SocketCloser closer;
    closer.Add(first);
    closer.Add(second);
    CZyError error = CZySocket::CreateSocketPair(&first, &second);
    if (error.IsError())
        return Failed(error, "no socket pair");
    if (!first.IsValid() || !second.IsValid())
        return Failed(FXErrorUtil::ErrorInt(ZY_LOC("zytool::SocketPairEcho"), 1, "the pair holds no sockets"),
                      "no socket pair");
    std::string detail;
    error = EchoOnce(first, second, "hello through a socket pair", detail);
    if (error.IsError())
        return Failed(error, "echo failed");
    return Ok(detail);
}

// Listens on `listenText` (port 0 for IP: the system picks one), connects,
// accepts with a time limit and echoes a message.
StepResult StreamEcho(const std::string& listenText)
{
    CZyIPAddr listenAddress;
    CZyError error = listenAddress.SetAddressString(listenText.c_str());
    if (error.IsError())
        return Failed(error, "bad listen address " + listenText);
    CZySocket listener;
    CZySocket client;
    CZySocket server;
    SocketCloser closer;
    closer.Add(listener);
    closer.Add(client);
    closer.Add(server);
    error = listener.Bind(listenAddress);
    if (error.IsError())
        return Failed(error, "bind to " + listenText + " failed");
    error = listener.Listen(4);
    if (error.IsError())
        return Failed(error, "listen failed");
    CZyIPAddr bound;
    error = listener.GetLocalAddress(bound);
    if (error.IsError())
        return Failed(error, "no local address");
    error = client.Connect(bound);
    if (error.IsError())
        return Failed(error, "connect failed");
    int timedOut = 0;
    error = listener.AcceptWithTimeout(server, kLimitSeconds, &timedOut);
    if (error.IsError())
        return Failed(error, "accept failed");
    if (!server.IsValid())
        return Failed(FXErrorUtil::ErrorWin32(ZY_LOC("zytool::StreamEcho"), static_cast<uint32_t>(ZYNET_getlasterror()),
                                              "the platform refused the connection"),
                      "accept failed");
    std::string detail;
    error = EchoOnce(client, server, "hello over a stream socket", detail);
    if (error.IsError())
        return Failed(error, "echo failed");
    std::string where = AddressText(bound);
    if (bound.GetAddressFamily() == CZyIPAddr::IP_FAMILY_IPV6)
        where = "[" + where + "]";
    if (bound.GetPortNumber() != 0)
        where += FXString::Format(":%d", bound.GetPortNumber());
    return Ok(FXString::Format("%s, %s, limits %d s", where.c_str(), detail.c_str(), kLimitSeconds));
}

StepResult TcpEchoIPv4() { return StreamEcho("127.0.0.1"); }

StepResult TcpEchoIPv6()
{
    bool present = false;
    CZyError error = CZyIPAddr::IsIPv6StackPresent(present);
    if (error.IsError())
        return Failed(error, "the IPv6 probe failed");
    if (!present)
        return Skipped("no IPv6 stack");
    return StreamEcho("::1");
}

std::string TempSocketPath()
{
    std::string base = TempDirectory();
    if (base.empty())
        base = "/tmp";
    std::string path = FXString::Format("%s%czynet-tour-%lu.sock", base.c_str(), PathSeparator(),
                                        FXProcess::getProcessId());
    if (path.size() > ZYNET_MAX_UNIX_PATH)
        path = FXString::Format("/tmp/zynet-tour-%lu.sock", FXProcess::getProcessId());
    return path;
}

StepResult UnixEcho()
{
    bool present = false;
    CZyError error = CZyIPAddr::IsUnixStackPresent(present);
    if (error.IsError())
        return Failed(error, "the Unix probe failed");
    if (!present)
        return Skipped("Unix-domain sockets are not supported here");
    const std::string path = TempSocketPath();
    std::remove(path.c_str());
    StepResult result = StreamEcho(path);
    std::remove(path.c_str());
    return result;
}

StepResult SelectorOverManySockets()
{
    const int kPairs = 24;
    std::vector<CZySocket> readers(kPairs);
    std::vector<CZySocket> writers(kPairs);
    SocketCloser closer;
    for (int i = 0; i < kPairs; ++i)
    {
        closer.Add(readers[i]);
        closer.Add(writers[i]);
    }
    CZySocketSelector selector;
    for (int i = 0; i < kPairs; ++i)
    {
        CZyError error = CZySocket::CreateSocketPair(&readers[i], &writers[i]);
        if (error.IsError())
            return Failed(error, "no socket pair");
        if (!readers[i].IsValid())
            return Failed(FXErrorUtil::ErrorInt(ZY_LOC("zytool::SelectorOverManySockets"), 1, "empty socket pair"),
                          "no socket pair");
        selector.SetReadSocket(readers[i]);
    }
    // Every third reader gets a byte; exactly those must come back ready.
    std::vector<ZYNET_SOCKET> expected;
    for (int i = 0; i < kPairs; i += 3)
    {
        int sent = 0;
        CZyError error = writers[i].Send("x", 1, 0, &sent);
        if (error.IsError())
            return Failed(error, "send failed");
        expected.push_back(readers[i].GetSocketDescriptor());
    }
    struct timeval limit = {kLimitSeconds, 0};
    bool timedOut = false;
    CZyError error = selector.Select(&limit, &timedOut);
    if (error.IsError())
        return Failed(error, "select failed");
    CZySocketSelector::SocketSet ready = selector.GetReadSelected();
    std::vector<ZYNET_SOCKET> got;
    for (const CZySocket& socket : ready)
        got.push_back(socket.GetSocketDescriptor());
    std::sort(expected.begin(), expected.end());
    if (timedOut || got != expected)
    {
        return Failed(FXErrorUtil::ErrorInt(ZY_LOC("zytool::SelectorOverManySockets"), 1,
                                            "%u sockets ready, expected %u", static_cast<unsigned>(got.size()),
                                            static_cast<unsigned>(expected.size())),
                      "wrong ready set");
    }
    // Drained, nothing is ready: a zero wait times out.
    for (const CZySocket& socket : ready)
    {
        char byte = 0;
        int received = 0;
        CZySocket reader = socket;
        error = reader.Recv(&byte, 1, 0, &received);
        if (error.IsError())
            return Failed(error, "receive failed");
    }
    struct timeval zero = {0, 0};
    error = selector.Select(&zero, &timedOut);
    if (error.IsError())
        return Failed(error, "select failed");
    if (!timedOut || !selector.GetReadSelected().empty())
        return Failed(FXErrorUtil::ErrorInt(ZY_LOC("zytool::SelectorOverManySockets"), 1,
                                            "drained sockets still ready"),
                      "wrong ready set");
    return Ok(FXString::Format("%d sockets watched, %u ready, then none", kPairs,
                               static_cast<unsigned>(expected.size())));
}

std::string JoinAddresses(const std::vector<CZyIPAddr>& addresses, size_t most)
{
    std::string text;
    for (size_t i = 0; i < addresses.size() && i < most; ++i)
    {
        if (i)
            text += ", ";
        text += AddressText(addresses[i]);
    }
    if (addresses.size() > most)
        text += ", ...";
    return text;
}

StepResult ResolveLocalhost()
{
    std::vector<CZyIPAddr> addresses;
    CZyError error = CZyIPAddr::GetAllByName("localhost", addresses, CZyIPAddr::IP_FAMILY_UNSPEC);
    if (error.IsError())
        return Failed(error, "localhost did not resolve");
    if (addresses.empty())
        return Failed(FXErrorUtil::ErrorInt(ZY_LOC("zytool::ResolveLocalhost"), 1, "no address"),
                      "localhost has no address");
    return Ok("localhost = " + JoinAddresses(addresses, 4));
}

StepResult Interfaces()
{
    std::vector<CZyIPAddr> addresses;
    CZyError error = CZyIPAddr::GetIFList(addresses, CZyIPAddr::IP_FAMILY_UNSPEC);
    if (error.IsError())
        return Failed(error, "cannot list the interfaces");
    return Ok(FXString::Format("%u addresses: ", static_cast<unsigned>(addresses.size())) +
              JoinAddresses(addresses, 4));
}

StepResult PingLoopback()
{
    std::string detail;
    CZyError error;
    switch (PingForTour(detail, error))
    {
    case kPingTourOk:
        return Ok(detail);
    case kPingTourNotPermitted:
    case kPingTourBusy:
        return Skipped(detail);
    default:
        return Failed(error, detail);
    }
}

const char* StatusName(StepResult::Status status)
{
    switch (status)
    {
    case StepResult::kOk: return "ok";
    case StepResult::kSkipped: return "skipped";
    default: return "failed";
    }
}
}  // namespace

int RunTour(Output& out, const std::vector<std::string>& args)
{
    ParseArgs(args, {}, {}, 0, 0);
    std::vector<TourStep> steps = {
        {"socket pair echo", SocketPairEcho},
        {"TCP echo over IPv4", TcpEchoIPv4},
        {"TCP echo over IPv6", TcpEchoIPv6},
        {"stream echo over a Unix path", UnixEcho},
        {"selector over many sockets", SelectorOverManySockets},
        {"resolve localhost", ResolveLocalhost},
        {"interface list", Interfaces},
        {"ping 127.0.0.1", PingLoopback},
        {"transfers over libcurl", TransfersOverCurl},
    };
    for (const TourStep& step : PlatformTransferSteps())
        steps.push_back(step);
    out.Line("zynet tour: the library on loopback");
    Json list = Json::array();
    int ok = 0;
    int skipped = 0;
    int failed = 0;
    for (const TourStep& step : steps)
    {
        const CTimeStamp start = CTimeStamp::Now();
        StepResult result = step.run();
        const double ms = CTimeStamp::Now().AsMilliseconds() - start.AsMilliseconds();
        Json entry = Json::object();
        entry["name"] = step.name;
        entry["status"] = StatusName(result.status);
        entry["ms"] = ms;
        entry["detail"] = result.detail;
        switch (result.status)
        {
        case StepResult::kOk:
            ++ok;
            out.Line("  [ ok ] %-30s %9.2f ms  %s", step.name, ms, result.detail.c_str());
            break;
        case StepResult::kSkipped:
            ++skipped;
            out.Line("  [skip] %-30s %12s  %s", step.name, "", result.detail.c_str());
            break;
        case StepResult::kFailed:
            ++failed;
            entry["error"] = ErrorJson(result.error);
            out.Line("  [FAIL] %-30s %9.2f ms  %s", step.name, ms, result.detail.c_str());
            if (!out.IsJson())
            {
                std::fflush(stdout);
                std::fprintf(stderr, "%s\n", result.error.AsString().c_str());
            }
            break;
        }
        list.push_back(entry);
    }
    out.Result()["steps"] = list;
    out.Result()["passed"] = ok;
    out.Result()["skipped"] = skipped;
    out.Result()["failed"] = failed;
    out.Line("%d steps: %d ok, %d skipped, %d failed", ok + skipped + failed, ok, skipped, failed);
    return failed ? kExitFailure : kExitOk;
}
}  // namespace zytool
