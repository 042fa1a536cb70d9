// Stream throughput over TCP on 127.0.0.1 and over a Unix socketpair, in
// chunks of 4 KiB, 64 KiB and 1 MiB, from a sender thread to the benchmark
// thread, through four paths:
//   raw        send()/recv() loops that move one whole chunk each
//   flat       ZYNET_send / ZYNET_recv
//   object     CZySocket::Send / CZySocket::Recv
//   timelimit  CZySocket::SendWithTimeOut / RecvWithTimeout, 60 s limit
// Both ends of a slice use the same path. Each repetition moves 2 GiB per
// path; see BM_Stream for how the paths share the connection and the time.
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

const Path kPaths[] = {Path::Raw, Path::Flat, Path::Object, Path::TimeLimit};
const char* const kPathNames[] = {"raw", "flat", "object", "timelimit"};
const int kPathCount = 4;
// Each path's 2 GiB is moved in this many slices, the paths taking turns.
const int kSlices = 64;

// Tells the sender thread which slice it may send; `stop` ends it early.
class SliceGate
{
public:
    void Release(int slice)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_released = slice;
        m_cv.notify_all();
    }
    void Stop()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
        m_cv.notify_all();
    }
    // Returns false when stopped.
    bool Wait(int slice)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_cv.wait(lock, [&] { return m_stop || m_released >= slice; });
        return !m_stop;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_cv;
    int m_released = -1;
    bool m_stop = false;
};

// Which path moves slice `index`: every round of kPathCount slices gives
// each path one slice, and the order rotates from round to round.
int PathOfSlice(int index)
{
    return (index % kPathCount + index / kPathCount) % kPathCount;
}

// One repetition moves 2 GiB through each of the four paths on one fresh
// connection, in alternating slices of 32 MiB, so that all four see the
// same conditions on the machine. Counters per path:
//   <path>_bytes_per_second      bytes / wall time of its slices
//   <path>_cpu_bytes_per_second  bytes / CPU time of both threads during them
void BM_Stream(benchmark::State& state, Transport transport)
{
    const int chunk = int(state.range(0));
    std::vector<char> sendBuffer(static_cast<size_t>(chunk));
    std::vector<char> recvBuffer(static_cast<size_t>(chunk));
    for (int i = 0; i < chunk; ++i)
        sendBuffer[size_t(i)] = char(i * 31 + 7);
    const int64_t chunksPerSlice = kBytesPerMeasurement / kSlices / chunk;
    const int slices = kSlices * kPathCount;
    double wall[kPathCount] = {};
    double cpu[kPathCount] = {};
    double moved[kPathCount] = {};  // bytes each path received

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
        std::vector<Endpoint> senders, receivers;
        for (Path path : kPaths)
        {
            senders.emplace_back(path, pair.a);
            receivers.emplace_back(path, pair.b);
        }

        SliceGate gate;
        std::string senderFailure;
        std::thread senderThread([&] {
            for (int slice = 0; slice < slices && gate.Wait(slice); ++slice)
            {
                Endpoint& sender = senders[size_t(PathOfSlice(slice))];
                for (int64_t i = 0; i < chunksPerSlice && senderFailure.empty(); ++i)
                    senderFailure = sender.SendChunk(sendBuffer.data(), chunk);
                if (!senderFailure.empty())
                    break;
            }
        });

        std::string receiverFailure;
        double total = 0;
        for (int slice = 0; slice < slices && receiverFailure.empty(); ++slice)
        {
            const int path = PathOfSlice(slice);
            Endpoint& receiver = receivers[size_t(path)];
            const double cpuStart = zybench::ProcessCpuSeconds();
            const auto start = std::chrono::steady_clock::now();
            gate.Release(slice);
            for (int64_t i = 0; i < chunksPerSlice && receiverFailure.empty(); ++i)
                receiverFailure = receiver.RecvChunk(recvBuffer.data(), chunk);
            const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            wall[path] += seconds;
            cpu[path] += zybench::ProcessCpuSeconds() - cpuStart;
            moved[path] += double(chunksPerSlice) * chunk;
            total += seconds;
        }

        // A failed receiver leaves the sender blocked on a full buffer or
        // waiting for its next slice: stopping and shutting down releases it.
        if (!receiverFailure.empty())
        {
            gate.Stop();
            shutdown(pair.b, SHUT_RDWR);
        }
        senderThread.join();
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
        state.SetIterationTime(total);
    }
    double totalMoved = 0;
    for (int p = 0; p < kPathCount; ++p)
    {
        totalMoved += moved[p];
        if (wall[p] > 0)
            state.counters[std::string(kPathNames[p]) + "_bytes_per_second"] = moved[p] / wall[p];
        if (cpu[p] > 0)
            state.counters[std::string(kPathNames[p]) + "_cpu_bytes_per_second"] = moved[p] / cpu[p];
    }
    state.SetBytesProcessed(int64_t(totalMoved));
}

void RegisterAll()
{
    struct TransportName
    {
        Transport transport;
        const char* name;
    } transports[] = {{Transport::Tcp4, "tcp4"}, {Transport::Unix, "unix"}};
    for (const auto& t : transports)
    {
        std::string name = std::string("stream/") + t.name;
        benchmark::RegisterBenchmark(name.c_str(), BM_Stream, t.transport)
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
