// The ICMP echo client. A series of cycles, each a one-second pause, one echo
// request and at most one reply, classified and reported to the caller's
// callback. Raw ICMP sockets are used where the process may open them; where
// they are refused, the kernel's unprivileged ICMP datagram sockets take their
// place with the same statuses, counters and callbacks.
#include "ZyNetwork/ZyPing.h"

#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <new>

#include "ZyNetwork/Internal/OsApi.h"
#include "ZyNetwork/Internal/OsIcmp.h"
#include "ZyNetwork/Internal/SecondsWait.h"
#include "ZyUtils/LogWriter.h"
#include "ZyUtils/Internal/ErrorCodes.h"

static const char kZyFile[] = "ZyNetwork/ZyPing";

namespace
{
const int kErrArgument = 3;       // transfer-result codes of the argument checks
const int kErrIpv6 = 2;
const int kErrNoMemory = 5;
const int kRequestTtl = 128;
const size_t kRecvExtra = 1032;   // room for the IP header and options besides the echo
const size_t kLogBufferSize = 4096;

uint16_t Load16(const unsigned char* p)
{
    uint16_t value;
    memcpy(&value, p, sizeof(value));
    return value;
}

void Store16(unsigned char* p, uint16_t value)
{
    memcpy(p, &value, sizeof(value));
}

// Sums 16-bit words in host order; with `skipChecksum` the bytes 2 and 3 (the
// ICMP checksum field) count as zero.
uint32_t SumWords(const unsigned char* data, size_t length, bool skipChecksum)
{
    uint32_t sum = 0;
    size_t i = 0;
    for (; i + 1 < length; i += 2)
    {
        if (skipChecksum && i == 2)
            continue;
        sum += Load16(data + i);
    }
    if (i < length)
        sum += data[i];  // a trailing odd byte, as the low byte of a word
    return sum;
}

uint16_t FoldSum(uint32_t sum)
{
    sum = (sum >> 16) + (sum & 0xFFFF);
    sum += (sum >> 16);
    return static_cast<uint16_t>(~sum & 0xFFFF);
}

int ClampToInt(size_t value)
{
    return value > static_cast<size_t>(INT_MAX) ? INT_MAX : static_cast<int>(value);
}

uint64_t ElapsedMs(const CTimeStamp& from, const CTimeStamp& to)
{
    double ms = to.AsMilliseconds() - from.AsMilliseconds();
    return ms > 0 ? static_cast<uint64_t>(ms) : 0;
}
}  // namespace

// ---- packet helpers ---------------------------------------------------------

namespace zy::icmp
{
uint16_t Checksum(const void* data, size_t length)
{
    return FoldSum(SumWords(static_cast<const unsigned char*>(data), length, false));
}

ReplyVerdict ClassifyReply(const ReplyCheck& check)
{
    ReplyVerdict verdict = {PING_SHORT_REPLY, false, 0};
    size_t headerLength = 0;
    if (check.hasIpHeader)
    {
        if (check.received < 1)
            return verdict;
        headerLength = static_cast<size_t>(check.data[0] & 0x0F) * 4;
        // A header shorter than an IPv4 header, or longer than what arrived,
        // leaves nothing trustworthy to read.
        if (headerLength < kMinIpHeaderSize || headerLength > check.received)
            return verdict;
    }
    const size_t icmpLength = check.received - headerLength;
    if (icmpLength < kHeaderSize)
        return verdict;
    const unsigned char* icmp = check.data + headerLength;

    if (icmp[0] == kEchoRequest && icmpLength == check.requestSize && check.request != nullptr &&
        memcmp(icmp, check.request, check.requestSize) == 0)
    {
        verdict.status = PING_FOREIGN_REPLY;
        verdict.ownRequest = true;
        return verdict;
    }
    // The sequence number is not compared: any echo reply with our
    // identifier answers the current cycle.
    if (icmp[0] != kEchoReply || Load16(icmp + 4) != check.identifier)
    {
        verdict.status = PING_FOREIGN_REPLY;
        return verdict;
    }
    if (icmpLength < check.requestSize)
        return verdict;  // short
    const uint16_t carried = Load16(icmp + 2);
    if (FoldSum(SumWords(icmp, check.requestSize, true)) != carried)
    {
        verdict.status = PING_BAD_CHECKSUM;
        return verdict;
    }
    verdict.status = PING_OK;
    verdict.ttl = check.hasIpHeader ? check.data[8] : 0;
    return verdict;
}
}  // namespace zy::icmp

// ---- CZyPing ------------------------------------------------------------------

CZyPing::CZyPing()
    : m_sendBuffer(nullptr),
      m_recvBuffer(nullptr),
      m_identifier(0),
      m_payloadSize(0),
      m_sendSize(0),
      m_recvSize(0),
      m_count(0),
      m_timeout(0),
      m_userData(nullptr),
      m_callback(nullptr),
      m_stopped(false),
      m_datagram(false),
      m_wireIdentifier(0)
{
}

CZyPing::CZyPing(const CZyPing& other) : CZyPing()
{
    copyFrom(other);
}

CZyPing& CZyPing::operator=(const CZyPing& other)
{
    if (this != &other)
    {
        closePingSocket();
        unprepareBuffer();
        copyFrom(other);
    }
    return *this;
}

CZyPing::~CZyPing()
{
    closePingSocket();
    unprepareBuffer();
}

// Takes everything but the socket. Buffers are duplicated so that each
// object frees only its own; if a duplicate cannot be allocated the copy
// simply has none and allocates on its first ping.
void CZyPing::copyFrom(const CZyPing& other)
{
    m_host = other.m_host;
    m_address = other.m_address;
    m_identifier = other.m_identifier;
    m_payloadSize = other.m_payloadSize;
    m_count = other.m_count;
    m_timeout = other.m_timeout;
    m_userData = other.m_userData;
    m_callback = other.m_callback;
    m_stopped = other.m_stopped;
    if (other.m_sendBuffer != nullptr && other.m_recvBuffer != nullptr)
    {
        m_sendBuffer = new (std::nothrow) unsigned char[other.m_sendSize];
        m_recvBuffer = new (std::nothrow) unsigned char[other.m_recvSize];
        if (m_sendBuffer != nullptr && m_recvBuffer != nullptr)
        {
            memcpy(m_sendBuffer, other.m_sendBuffer, other.m_sendSize);
            memcpy(m_recvBuffer, other.m_recvBuffer, other.m_recvSize);
            m_sendSize = other.m_sendSize;
            m_recvSize = other.m_recvSize;
        }
        else
            unprepareBuffer();
    }
}

CZyError CZyPing::ping(char const* host, unsigned int bufferSize, unsigned int count, unsigned int timeout,
                       void* userData, CZyPingCallback* callback, _ZyPingResult& result, bool ipv6)
{
    if (ipv6)
        return FXErrorUtil::ErrorRKResult(ZY_LOC("CZyPing::ping"), kErrIpv6, "IPV6 is not supported currently");
    if (bufferSize == 0)
        return FXErrorUtil::ErrorRKResult(ZY_LOC("CZyPing::ping"), kErrArgument, "Invalid buffer size (%u)",
                                          bufferSize);
    if (count == 0)
        return FXErrorUtil::ErrorRKResult(ZY_LOC("CZyPing::ping"), kErrArgument, "Invalid buffer count (%u)", count);
    if (host == nullptr)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyPing::ping"), zy::err::kInvalidParameter,
                                       "Invalid input parameter, host is NULL");

    // The payload size is stored with every call and is what good replies
    // report as `bytes`; the buffers, though, are sized only when they are
    // first made, so a later call sends the first call's payload.
    m_payloadSize = bufferSize;
    m_count = count;
    m_timeout = timeout;
    m_userData = userData;
    m_callback = callback;
    m_stopped = false;

    // foreignReplies keeps counting across calls with the same record.
    result.server.clear();
    result.address.clear();
    result.sent = 0;
    result.received = 0;
    result.checksumErrors = 0;
    result.shortReplies = 0;
    result.timeouts = 0;
    result.totalTimeMs = 0;

    CZyError err = preparePingSocket(host, timeout, false);
    if (err.IsError())
        return err.Push(ZY_LOC("CZyPing::ping"), "prepare socket failed [%s]", host);
    err = prepareBuffer();
    if (err.IsError())
        return err.Push(ZY_LOC("CZyPing::ping"), "prepare buffer failed");

    result.server = m_host.str();
    result.address = m_address.str();

    for (unsigned int cycle = 0; cycle < count; ++cycle)
    {
        ZYSLEEP(1000);

        _ZyPingResponse response;
        bool timedOut = false;
        CTimeStamp sendTime;
        CTimeStamp receiveTime;
        err = sendPingRequest(result.sent, timedOut, sendTime);
        if (err.IsError())
            return err.Push(ZY_LOC("CZyPing::ping"), "Sending ping request failed");
        result.sent++;

        if (!timedOut)
        {
            err = recvAndProcessPingResponse(response, result, receiveTime);
            if (err.IsError())
                return err.Push(ZY_LOC("CZyPing::ping"), "Receiving ping reply failed");
        }
        else
        {
            // The cycle's time is then the time the send waited.
            receiveTime = CTimeStamp::Now();
            response.status = PING_TIMEOUT;
            result.timeouts++;
        }

        response.timeMs = ElapsedMs(sendTime, receiveTime);
        result.totalTimeMs += response.timeMs;
        response.server = m_host.str();
        response.address = m_address.str();
        response.count = count;
        response.sequence = result.sent;

        if (callback != nullptr && !callback->OnPingResponse(userData, response, result.sent == count))
        {
            m_stopped = true;
            break;
        }
    }
    return CZyError::Success();
}

CZyError CZyPing::preparePingSocket(char const* host, unsigned int timeout, bool ipv6)
{
    const CZyIPAddr::IP_FAMILY family = ipv6 ? CZyIPAddr::IP_FAMILY_IPV6 : CZyIPAddr::IP_FAMILY_IPV4;
    CZyIPAddr address;
    CZyError err = address.SetAddressString(host);
    if (err.IsError())
    {
        err = CZyIPAddr::GetByName(host, address, family);
        if (err.IsError())
            return err.Push(ZY_LOC("CZyPing::preparePingSocket"), "Get by name [%s] failed", host);
    }
    CZyString addressText;
    err = address.GetAddressString(addressText);
    if (err.IsError())
        return err.Push(ZY_LOC("CZyPing::preparePingSocket"), "Get IP-address string failed. [%s]", host);

    log("ZyPing: [server - %s] [IP - %s]", host, addressText.c_str());

    const bool reused = m_socket.IsValid();
    if (reused)
    {
        // A later call keeps its socket and points it at the new target.
        m_socket.AttachConnectedSocket(m_socket.GetSocketDescriptor(), address);
    }
    else
    {
        m_datagram = false;
        err = m_socket.ICMPSocket(address, family);
        if (err.Is(zy::err::kAccessDenied))
        {
            ZYNET_SOCKET handle = ZYNET_INVALID_SOCKET;
            uint16_t wireIdentifier = 0;
            int code = zy::os::OpenIcmpDatagramSocket(family, &handle, &wireIdentifier);
            if (code != 0)
                return err
                    .Push(ZY_LOC("CZyPing::preparePingSocket"),
                          "Raw ICMP sockets are refused and ICMP datagram sockets are not available either "
                          "(error %d): ping needs administrator or root rights (CAP_NET_RAW), or on Linux "
                          "a group in net.ipv4.ping_group_range",
                          code)
                    .Push(ZY_LOC("CZyPing::preparePingSocket"), "ICMP-Socket creation [%s] failed.", host);
            m_socket.AttachConnectedSocket(handle, address);
            m_datagram = true;
            m_wireIdentifier = wireIdentifier;
            err = CZyError::Success();
            log("ZyPing: raw ICMP socket refused, using an ICMP datagram socket");
        }
        if (err.IsError())
            return err.Push(ZY_LOC("CZyPing::preparePingSocket"), "ICMP-Socket creation [%s] failed.", host);
    }

    if (timeout != 0)
    {
        err = m_socket.SetToNonBlocking();
        if (err.IsError())
            return err.Push(ZY_LOC("CZyPing::preparePingSocket"), "Setting non blocking mode failed [%s]", host);
    }
    else if (reused)
    {
        // No limit means a plain blocking receive; an earlier call with a
        // limit left the socket non-blocking.
        err = m_socket.SetToBlocking();
        if (err.IsError())
            return err.Push(ZY_LOC("CZyPing::preparePingSocket"), "Setting blocking mode failed [%s]", host);
    }

    int code = zy::os::SetIpTtl(m_socket.GetSocketDescriptor(), kRequestTtl);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyPing::preparePingSocket"), static_cast<uint32_t>(code),
                                       "Setting socket-TTL failed. [%s]", host);

    m_host = host;
    m_address = addressText;
    return CZyError::Success();
}

CZyError CZyPing::prepareBuffer()
{
    m_identifier = static_cast<uint16_t>(FXProcess::getProcessId() & 0xFFFF);
    if (m_sendBuffer == nullptr)
    {
        m_sendSize = m_payloadSize + zy::icmp::kHeaderSize;
        // The payload is sent as zeros; the checksum covers whatever is sent.
        m_sendBuffer = new (std::nothrow) unsigned char[m_sendSize]();
        if (m_sendBuffer == nullptr)
            return FXErrorUtil::ErrorRKResult(ZY_LOC("CZyPing::prepareBuffer"), kErrNoMemory,
                                              "Ping send-buffer allocation failed");
    }
    if (m_recvBuffer == nullptr)
    {
        m_recvSize = m_payloadSize + kRecvExtra;
        m_recvBuffer = new (std::nothrow) unsigned char[m_recvSize];
        if (m_recvBuffer == nullptr)
        {
            delete[] m_sendBuffer;
            m_sendBuffer = nullptr;
            return FXErrorUtil::ErrorRKResult(ZY_LOC("CZyPing::prepareBuffer"), kErrNoMemory,
                                              "Ping recv-buffer allocation failed");
        }
    }
    m_sendBuffer[0] = zy::icmp::kEchoRequest;
    m_sendBuffer[1] = 0;
    Store16(m_sendBuffer + 2, 0);
    Store16(m_sendBuffer + 4, m_identifier);
    Store16(m_sendBuffer + 6, 0);
    return CZyError::Success();
}

CZyError CZyPing::sendPingRequest(unsigned int sequence, bool& timedOut, CTimeStamp& sendTime)
{
    timedOut = false;
    m_sendBuffer[0] = zy::icmp::kEchoRequest;
    m_sendBuffer[1] = 0;
    Store16(m_sendBuffer + 2, 0);
    Store16(m_sendBuffer + 4, m_identifier);
    Store16(m_sendBuffer + 6, static_cast<uint16_t>(sequence & 0xFFFF));
    Store16(m_sendBuffer + 2, checksum(reinterpret_cast<unsigned short*>(m_sendBuffer), ClampToInt(m_sendSize)));

    sendTime = CTimeStamp::Now();
    int flagTimedOut = 0;
    int sent = 0;
    CZyError err = m_socket.SendtoICMPSocket(m_sendBuffer, ClampToInt(m_sendSize), ClampToInt(m_timeout),
                                             &flagTimedOut, 0, &sent);
    if (flagTimedOut != 0)
    {
        timedOut = true;
        return CZyError::Success();
    }
    if (err.IsError())
        return err.Push(ZY_LOC("CZyPing::sendPingRequest"), "Sending ping request failed");
    return CZyError::Success();
}

// One datagram from a kernel ICMP datagram socket, waiting as the raw
// socket's receive does: one-second waits until `seconds` whole seconds have
// passed (0: no limit, a plain blocking receive).
CZyError CZyPing::receiveDatagram(int seconds, bool& timedOut, size_t& received, int& ttl)
{
    timedOut = false;
    received = 0;
    ttl = -1;
    const ZYNET_SOCKET handle = m_socket.GetSocketDescriptor();
    if (seconds > 0)
    {
        int code = zy::net::SecondsWait(handle, false, seconds).UntilReady(&timedOut);
        if (code != 0)
            return FXErrorUtil::ErrorWin32(ZY_LOC("CZyPing::receiveDatagram"), static_cast<uint32_t>(code));
        if (timedOut)
            return CZyError::Success();
    }
    int count = 0;
    int code = zy::os::RecvIcmpDatagram(handle, m_recvBuffer, ClampToInt(m_recvSize), &count, &ttl);
    if (code != 0)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyPing::receiveDatagram"), static_cast<uint32_t>(code));
    received = static_cast<size_t>(count);
    return CZyError::Success();
}

CZyError CZyPing::recvAndProcessPingResponse(_ZyPingResponse& response, _ZyPingResult& result,
                                             CTimeStamp& receiveTime)
{
    const int64_t start = ZyMonotonicSeconds();
    int seconds = ClampToInt(m_timeout);
    for (;;)
    {
        bool timedOut = false;
        size_t received = 0;
        int ttl = -1;
        CZyError err;
        if (m_datagram)
            err = receiveDatagram(seconds, timedOut, received, ttl);
        else
        {
            int flagTimedOut = 0;
            int count = 0;
            err = m_socket.RecvfromICMPSocket(m_recvBuffer, ClampToInt(m_recvSize), seconds, &flagTimedOut, 0,
                                              &count);
            timedOut = flagTimedOut != 0;
            received = count > 0 ? static_cast<size_t>(count) : 0;
        }
        receiveTime = CTimeStamp::Now();

        if (timedOut)
        {
            response.status = PING_TIMEOUT;
            result.timeouts++;
            return CZyError::Success();
        }
        if (err.IsError())
            return err.Push(ZY_LOC("CZyPing::recvAndProcessPingResponse"), "Failed to receive ping request");

        zy::icmp::ReplyCheck check;
        check.data = m_recvBuffer;
        check.received = std::min(received, m_recvSize);
        check.hasIpHeader = !m_datagram;
        check.request = m_sendBuffer;
        check.requestSize = m_sendSize;
        check.identifier = m_datagram ? m_wireIdentifier : m_identifier;
        zy::icmp::ReplyVerdict verdict = zy::icmp::ClassifyReply(check);

        if (verdict.ownRequest)
        {
            // Our own request, seen by the raw socket on its way in (loopback
            // targets): not an answer. Wait on for the rest of the limit.
            if (seconds > 0)
            {
                int64_t elapsed = ZyMonotonicSeconds() - start;
                if (elapsed > static_cast<int64_t>(m_timeout))
                {
                    response.status = PING_TIMEOUT;
                    result.timeouts++;
                    return CZyError::Success();
                }
                int64_t left = static_cast<int64_t>(m_timeout) - elapsed;
                seconds = static_cast<int>(std::max<int64_t>(1, std::min<int64_t>(left, INT_MAX)));
            }
            continue;
        }

        response.status = verdict.status;
        switch (verdict.status)
        {
        case PING_FOREIGN_REPLY:
            result.foreignReplies++;
            break;
        case PING_SHORT_REPLY:
            result.shortReplies++;
            break;
        case PING_BAD_CHECKSUM:
            result.checksumErrors++;
            break;
        default:
            result.received++;
            response.bytes = static_cast<uint32_t>(m_payloadSize);
            response.ttl = m_datagram ? (ttl >= 0 ? static_cast<uint32_t>(ttl) : 0) : verdict.ttl;
            break;
        }
        return CZyError::Success();
    }
}

unsigned short CZyPing::checksum(unsigned short* words, int length)
{
    if (words == nullptr || length <= 0)
        return 0xFFFF;
    return zy::icmp::Checksum(words, static_cast<size_t>(length));
}

void CZyPing::closePingSocket()
{
    if (m_socket.IsValid())
        m_socket.Close();
    m_datagram = false;
}

void CZyPing::unprepareBuffer()
{
    delete[] m_sendBuffer;
    delete[] m_recvBuffer;
    m_sendBuffer = nullptr;
    m_recvBuffer = nullptr;
    m_sendSize = 0;
    m_recvSize = 0;
}

void CZyPing::log(char const* format, ...)
{
    if (m_callback == nullptr)
        return;
    char text[kLogBufferSize];
    va_list args;
    va_start(args, format);
    int written = vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    if (written < 0)
        text[0] = '\0';
    m_callback->OnPingLog(text);
}
