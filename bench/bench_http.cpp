// One download through RkHTTPReq, into a callback that discards the bytes or
// into a file; prints bytes, seconds and peak resident memory as one JSON
// line. scripts/bench_http.py runs it against nginx on loopback, interleaved
// with the curl tool fetching the same URL.
//
//   bench_http URL discard
//   bench_http URL file PATH
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>

#include <chrono>
#include <string>

#include "ZyNetwork/RkHTTPReq.h"

namespace
{
size_t Discard(char*, size_t size, size_t count, void* user)
{
    *static_cast<unsigned long long*>(user) += size * count;
    return size * count;
}

long PeakKiB()
{
    struct rusage usage;
    return getrusage(RUSAGE_SELF, &usage) == 0 ? usage.ru_maxrss : -1;
}
}  // namespace

int main(int argc, char** argv)
{
    if (argc < 3 || (strcmp(argv[2], "file") == 0 && argc < 4))
    {
        fprintf(stderr, "usage: bench_http URL discard | bench_http URL file PATH\n");
        return 2;
    }
    const std::string url = argv[1];
    const size_t pathStart = url.find('/', url.find("://") + 3);
    RkCURL::RkHTTPReq request;
    CZyError error = request.initialize(0);
    if (error.IsError())
    {
        fprintf(stderr, "%s\n", error.AsString().c_str());
        return 1;
    }
    request.setURL(url.substr(0, pathStart));
    const std::string path = url.substr(pathStart);
    unsigned long long bytes = 0;
    const long before = PeakKiB();
    const auto start = std::chrono::steady_clock::now();
    if (strcmp(argv[2], "file") == 0)
    {
        error = request.downloadToFile(path.c_str(), argv[3]);
    }
    else
    {
        request.setWriteFunctionPointer(&bytes, &Discard);
        error = request.download(path.c_str(), {});
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (error.IsError())
    {
        fprintf(stderr, "%s\n", error.AsString().c_str());
        return 1;
    }
    printf("{\"bytes\": %llu, \"seconds\": %.6f, \"peakKiBBefore\": %ld, \"peakKiB\": %ld}\n", bytes, seconds, before,
           PeakKiB());
    return 0;
}
