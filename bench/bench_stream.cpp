// Stream throughput: 2 GiB per measurement from a sender thread to the
// benchmark thread, over TCP on 127.0.0.1 and over a Unix socketpair, in
// chunks of 4 KiB, 64 KiB and 1 MiB, through four paths:
//   Raw        send()/recv() loops that move one whole chunk each
//   Flat       ZYNET_send / ZYNET_recv
//   Object     CZySocket::Send / CZySocket::Recv
//   TimeLimit  CZySocket::SendWithTimeOut / RecvWithTimeout, 60 s limit
// Both ends of a measurement use the same path. The time runs from the
// release of the sender until the receiver holds the last byte, and each
// repetition is one 2 GiB transfer on a fresh connection. The counter
// cpu_bytes_per_second divides the bytes by the CPU time of both threads.
#include <errno.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "BenchSupport.h"
#include "ZyNetwork/ZySocket.h"

namespace
{

const int64_t kBytesPerMeasurement = int64_t(2) << 30;  // 2 GiB
const int kTimeLimitSeconds = 60;

enum class Transport
{
    Tcp4,
    Unix
};

enum class Path
{
    Raw,
    Flat,
    Object,
    TimeLimit
};

// One chunk through one path. Returns an empty string, or what failed. A
// chunk is always moved whole: the receiver stops early only on an error or
// when the peer closed, both of which end the measurement.
struct Endpoint
{
    Path path;
    int fd;
    CZySocket socket;

    Endpoint(Path p, int descriptor) : path(p), fd(descriptor)
    {
        socket.AttachConnectedSocket(static_cast<ZYNET_SOCKET>(descriptor));
    }

    std::string SendChunk(const char* data, int length)
    {
        switch (path)
        {
        case Path::Raw:
        {
            int sent = 0;
            while (sent < length)
            {
                ssize_t n = send(fd, data + sent, size_t(length - sent), MSG_NOSIGNAL);
                if (n < 0)
                {
                    if (errno == EINTR)
                        continue;
                    return zybench::ErrnoText("send");
                }
                sent += int(n);
            }
            return std::string();
        }
        case Path::Flat:
        {
            int sent = 0;
            int code = ZYNET_send(fd, data, length, &sent, 0);
            if (code != 0 || sent != length)
                return "ZYNET_send: code " + std::to_string(code) + ", sent " + std::to_string(sent);
            return std::string();
        }
        case Path::Object:
        {
            int sent = 0;
            CZyError error = socket.Send(data, length, 0, &sent);
            if (error.IsError())
                return "CZySocket::Send: " + error.AsString();
            return std::string();
        }
        case Path::TimeLimit:
        {
            int sent = 0;
            int timedOut = 0;
            CZyError error = socket.SendWithTimeOut(data, length, kTimeLimitSeconds, &timedOut, 0, &sent);
            if (error.IsError())
                return "CZySocket::SendWithTimeOut: " + error.AsString();
            return std::string();
        }
        }
        return "unknown path";
    }

    std::string RecvChunk(char* data, int length)
    {
        switch (path)
        {
        case Path::Raw:
        {
            int received = 0;
            while (received < length)
            {
                ssize_t n = recv(fd, data + received, size_t(length - received), 0);
                if (n < 0)
                {
                    if (errno == EINTR)
                        continue;
                    return zybench::ErrnoText("recv");
                }
                if (n == 0)
                    return "recv: peer closed early";
                received += int(n);
            }
            return std::string();
        }
        case Path::Flat:
        {
            int received = 0;
            int code = ZYNET_recv(fd, data, length, &received, 0);
            if (code != 0 || received != length)
                return "ZYNET_recv: code " + std::to_string(code) + ", received " + std::to_string(received);
            return std::string();
        }
        case Path::Object:
        {
            int received = 0;
            CZyError error = socket.Recv(data, length, 0, &received);
            if (error.IsError())
                return "CZySocket::Recv: " + error.AsString();
            return std::string();
        }
        case Path::TimeLimit:
        {
            int received = 0;
            int timedOut = 0;
            CZyError error = socket.RecvWithTimeout(data, length, kTimeLimitSeconds, &timedOut, 0, &received);
            if (error.IsError())
                return "CZySocket::RecvWithTimeout: " + error.AsString();
            return std::string();
        }
        }
        return "unknown path";
    }
};

// CPU time of the whole process (every thread), in seconds.
double ProcessCpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

// A one-shot start signal for the sender thread.
class StartGate
{
public:
    void Open()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_open = true;
        m_cv.notify_all();
    }
    void Wait()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_cv.wait(lock, [this] { return m_open; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_cv;
    bool m_open = false;
};

void BM_Stream(benchmark::State& state, Transport transport, Path path)
{
    const int chunk = int(state.range(0));
    std::vector<char> sendBuffer(size_t(chunk), 'z');
    std::vector<char> recvBuffer(static_cast<size_t>(chunk));
    for (int i = 0; i < chunk; ++i)
        sendBuffer[size_t(i)] = char(i * 31 + 7);
    const int64_t chunks = kBytesPerMeasurement / chunk;
    double cpuSeconds = 0;

    for (auto _ : state)
    {
        zybench::StreamPair pair;
        std::string failure = transport == Transport::Tcp4 ? zybench::MakeTcpLoopbackPair(pair)
                                                           : zybench::MakeUnixStreamPair(pair);
        if (!failure.empty())
        {
            state.SkipWithError(failure.c_str());
            break;
        }
        Endpoint sender(path, pair.a);
        Endpoint receiver(path, pair.b);

        StartGate gate;
        std::string senderFailure;
        std::thread senderThread([&] {
            gate.Wait();
            for (int64_t i = 0; i < chunks; ++i)
            {
                senderFailure = sender.SendChunk(sendBuffer.data(), chunk);
                if (!senderFailure.empty())
                    break;
            }
        });

        const double cpuStart = ProcessCpuSeconds();
        auto start = std::chrono::steady_clock::now();
        gate.Open();
        std::string receiverFailure;
        for (int64_t i = 0; i < chunks; ++i)
        {
            receiverFailure = receiver.RecvChunk(recvBuffer.data(), chunk);
            if (!receiverFailure.empty())
                break;
        }
        auto stop = std::chrono::steady_clock::now();

        // A failed receiver leaves the sender blocked on a full buffer:
        // shutting the pair down releases it.
        if (!receiverFailure.empty())
            shutdown(pair.b, SHUT_RDWR);
        senderThread.join();
        cpuSeconds += ProcessCpuSeconds() - cpuStart;
        ClosePair(pair);

        // The last chunk must be the sender's bytes, so that a path that
        // reports success without moving data cannot pass for a fast one.
        if (receiverFailure.empty() && senderFailure.empty() && recvBuffer != sendBuffer)
            receiverFailure = "received bytes differ from the bytes sent";
        if (!receiverFailure.empty() || !senderFailure.empty())
        {
            std::string message = receiverFailure.empty() ? senderFailure : receiverFailure;
            state.SkipWithError(message.c_str());
            break;
        }
        state.SetIterationTime(std::chrono::duration<double>(stop - start).count());
    }
    state.SetBytesProcessed(state.iterations() * chunks * chunk);
    // Bytes moved per second of CPU spent by both threads: the throughput
    // the path would reach with the CPU to itself, and so a figure that
    // other work on a shared machine disturbs far less than the wall clock.
    if (cpuSeconds > 0)
        state.counters["cpu_bytes_per_second"] = double(state.iterations() * chunks * chunk) / cpuSeconds;
}

void RegisterAll()
{
    struct TransportName
    {
        Transport transport;
        const char* name;
    } transports[] = {{Transport::Tcp4, "tcp4"}, {Transport::Unix, "unix"}};
    struct PathName
    {
        Path path;
        const char* name;
    } paths[] = {{Path::Raw, "raw"}, {Path::Flat, "flat"}, {Path::Object, "object"}, {Path::TimeLimit, "timelimit"}};
    for (const auto& t : transports)
        for (const auto& p : paths)
        {
            std::string name = std::string("stream/") + t.name + "/" + p.name;
            benchmark::RegisterBenchmark(name.c_str(), BM_Stream, t.transport, p.path)
                ->Arg(4 << 10)
                ->Arg(64 << 10)
                ->Arg(1 << 20)
                ->Iterations(1)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
        }
}

const bool registered = (RegisterAll(), true);

}  // namespace

ZYBENCH_MAIN()
