// Where the body of `zynet get` goes. A download to a file is written beside
// it under a temporary name and moved over the file only when the whole body
// has arrived, so a failure leaves the file as it was; --continue appends to
// the file instead, and only what the server sent as the asked-for rest.
// The body of a failed HTTP answer (an error page) is never written.
#pragma once

#include <stdint.h>

#include <string>

#include "ZyNetwork/RkProtocolReq.h"
#include "ZyUtils/ZyError.h"
#include "ZyUtils/ZyFile.h"

namespace zytool
{
class BodySink
{
public:
    // `file` "" or "-" means stdout. `resume`: --continue.
    BodySink(const std::string& file, bool resume, bool http);
    ~BodySink();

    // Before each attempt: the file's bytes already there (`offset`, to be
    // asked for with a range; 0 without --continue) and a fresh temporary
    // file where one is needed.
    CZyError Prepare(uint64_t& offset);
    // The request's write and header callbacks for this sink.
    void Attach(RkCURL::RkProtocolReq& request);
    // After a successful request: the body takes its place under the file's
    // name.
    CZyError Commit();
    // After a failed attempt: no temporary file is left; with --continue the
    // bytes appended so far stay in the file.
    void Abandon();
    // After the server refused to resume: the next attempt fetches the
    // whole body into a temporary file, which replaces the file after
    // success.
    void StartOver() { m_startOver = true; }
    // A temporary name beside the file, made (empty) so that no one else
    // takes it, for a client that writes the file itself.
    CZyError MakeTemporary(std::string& path);

    bool ToStdout() const { return m_file.empty(); }
    // Whether a byte of this attempt has gone to stdout (it cannot be taken
    // back, so the download cannot be tried again).
    bool WroteToStdout() const { return ToStdout() && m_bytes > 0; }
    // The last HTTP status line the server sent (0 and "" for none).
    int Status() const { return m_status; }
    const std::string& Reason() const { return m_reason; }
    // Bytes of the body kept in this attempt; the file's size after Commit.
    uint64_t Bytes() const { return m_bytes; }
    uint64_t FileSize() const { return m_fileSize; }
    // --continue found the file complete already (416 for the range past
    // its end, with the same total).
    bool AlreadyComplete() const;
    // The server answered the range with another one than asked for.
    bool RangeMismatch() const { return m_rangeMismatch; }
    // The server sent the whole body again instead of the rest.
    bool StartedOver() const { return (m_mode == kTemporary || m_startOver) && m_resume; }

private:
    enum Mode
    {
        kUndecided,
        kDiscard,    // a failed answer's body
        kStdout,
        kTemporary,  // the whole body, into the temporary file
        kAppend      // the rest, appended to the file
    };

    static size_t Write(char* data, size_t size, size_t count, void* self);
    static size_t Header(char* data, size_t size, size_t count, void* self);
    void Decide();
    // A name nobody else holds beside the file, made exclusively and left
    // open for writing.
    CZyError CreateTemporary(std::string& path);
    CZyError OpenTemporary();
    void RemoveTemporary();

    std::string m_file;
    bool m_resume;
    bool m_http;
    Mode m_mode = kUndecided;
    uint64_t m_offset = 0;
    uint64_t m_bytes = 0;
    uint64_t m_fileSize = 0;
    int m_status = 0;
    std::string m_reason;
    int64_t m_rangeStart = -1;
    int64_t m_rangeTotal = -1;
    bool m_rangeMismatch = false;
    bool m_failed = false;
    bool m_startOver = false;
    CZyFile m_out;
    std::string m_temporary;
};
}  // namespace zytool
