// CZyPing: an ICMP echo ("ping") client for IPv4 hosts, with the per-cycle
// callback interface and the records it fills.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>

#include "ZyNetwork/ZyIPAddr.h"
#include "ZyNetwork/ZySocket.h"
#include "ZyUtils/ZyError.h"
#include "ZyUtils/ZyString.h"
#include "ZyUtils/ZyTime.h"

// What one cycle ended with.
enum
{
    PING_OK = 0,             // echo reply with our identifier, long enough, checksum good
    PING_TIMEOUT = 1,        // the send timed out, or no reply within the timeout
    PING_SHORT_REPLY = 2,    // fewer bytes than IP header + request
    PING_BAD_CHECKSUM = 3,   // ICMP checksum mismatch
    PING_FOREIGN_REPLY = 4   // ICMP type not echo reply, or another identifier
};

// The sum of one `ping` call. foreignReplies is not reset by `ping`: it keeps
// counting across calls that share the record.
typedef struct _ZyPingResult
{
    std::string server;        // the host as the caller gave it
    std::string address;       // its resolved address as text
    uint32_t sent = 0;         // echo requests sent
    uint32_t received = 0;     // good replies
    uint32_t checksumErrors = 0;
    uint32_t shortReplies = 0;
    uint32_t timeouts = 0;
    uint32_t foreignReplies = 0;
    uint64_t totalTimeMs = 0;  // sum of the cycle times
} ZyPingResult;

// One cycle, as handed to CZyPingCallback::OnPingResponse.
typedef struct _ZyPingResponse
{
    std::string server;
    std::string address;
    uint32_t count = 0;     // cycles requested
    uint32_t sequence = 0;  // this cycle, from 1
    uint32_t bytes = 0;     // the call's payload size (good replies)
    uint32_t ttl = 0;       // time-to-live of the reply (good replies)
    int32_t status = PING_TIMEOUT;
    uint64_t timeMs = 0;    // this cycle's time
} ZyPingResponse;

// Receives each cycle's result and the progress text of a ping series.
class ZYNET_API CZyPingCallback
{
public:
    virtual ~CZyPingCallback() {}
    // Called after every cycle; returning false ends the series (with success).
    virtual bool OnPingResponse(void* userData, _ZyPingResponse& response, bool isLast) = 0;
    // Progress text.
    virtual void OnPingLog(char const* text) = 0;
};

// The ICMP echo client: sends a series of echo requests to one IPv4 host.
class ZYNET_API CZyPing
{
public:
    CZyPing();
    // A copy takes the settings, strings and buffers but never the socket:
    // each object closes only the socket it opened itself.
    CZyPing(const CZyPing& other);
    // The same for assignment, which first closes this object's own socket.
    CZyPing& operator=(const CZyPing& other);
    ~CZyPing();

    // Sends `count` echo requests of `bufferSize` payload bytes to `host`, one
    // per second (each after a one-second pause), and waits up to `timeout`
    // seconds for each reply (0: no limit). IPv4 only: `ipv6` true fails.
    // The buffers are made by the first call and kept: a later call sends
    // the first call's payload size, while its good replies report its own
    // `bufferSize` as `bytes`.
    CZyError ping(char const* host, unsigned int bufferSize, unsigned int count, unsigned int timeout,
                  void* userData, CZyPingCallback* callback, _ZyPingResult& result, bool ipv6);

private:
    CZyError preparePingSocket(char const* host, unsigned int timeout, bool ipv6);
    CZyError prepareBuffer();
    CZyError sendPingRequest(unsigned int sequence, bool& timedOut, CTimeStamp& sendTime);
    CZyError recvAndProcessPingResponse(_ZyPingResponse& response, _ZyPingResult& result, CTimeStamp& receiveTime);
    CZyError receiveDatagram(int seconds, bool& timedOut, size_t& received, int& ttl);
    unsigned short checksum(unsigned short* words, int length);
    void closePingSocket();
    void unprepareBuffer();
    void log(char const* format, ...) ZY_PRINTF_LIKE(2, 3);
    void copyFrom(const CZyPing& other);

    CZySocket m_socket;
    CZyString m_host;
    CZyString m_address;
    unsigned char* m_sendBuffer;
    unsigned char* m_recvBuffer;
    uint16_t m_identifier;     // low 16 bits of the process id
    size_t m_payloadSize;      // the latest call's payload size
    size_t m_sendSize;         // payload + 8
    size_t m_recvSize;         // payload + 1032
    unsigned int m_count;
    unsigned int m_timeout;
    void* m_userData;
    CZyPingCallback* m_callback;
    bool m_stopped;            // the callback ended the current series

    // Set when the socket is a kernel ICMP datagram socket (used when raw
    // sockets are refused): the kernel then owns the identifier on the wire
    // (m_wireIdentifier) and replies arrive without their IP header.
    bool m_datagram;
    uint16_t m_wireIdentifier;
};
