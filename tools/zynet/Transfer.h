// What the transfer commands (get, put, ls, head, rm, mkdir) share: their
// options, the request of a URL's protocol and the progress line.
#pragma once

#include <stdio.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Tool.h"
#include "TransferClients.h"
#include "ZyNetwork/RkProtocolReq.h"
#include "ZyUtils/ZyString.h"

namespace zytool
{
extern const char kDefaultClient[];

struct TransferArgs
{
    std::string url;     // as typed
    std::string shown;   // as printed: the password of its user-info masked
    std::string server;  // scheme://authority (the request's base URL; operations take `url` whole)
    std::string cacert;
    std::string key;         // --key FILE (SFTP private key)
    std::string passphrase;  // --pass PHRASE (its passphrase)
    std::string knownHosts;  // --known-hosts FILE (SFTP)
    std::string client = kDefaultClient;
    TransferOptions options;
    Args parsed;
};

// The options that the table of commands lists for `command` (get, put,
// ls, head, rm, mkdir); the URL is the last positional argument. Passwords
// are handed to `out` as texts never to print.
TransferArgs ParseTransferArgs(Output& out, const std::vector<std::string>& args, const char* command,
                               size_t minPositional, size_t maxPositional);

// Points `transfer` at `url`: the URL as typed, as shown and cut into server
// and path; the password of its user-info becomes a text never to print.
// A text that is no URL is a usage error.
void SetTransferUrl(Output& out, TransferArgs& transfer, const std::string& url);

// The URL's scheme in lower case.
std::string Scheme(const std::string& url);

// The other client named by --client, or null for the library's own.
const TransferClient* ChooseClient(const TransferArgs& transfer);

// Progress on a terminal: bytes so far, rate and time left, redrawn at most
// five times a second on one line of stderr.
class Progress
{
public:
    explicit Progress(bool enabled) : m_enabled(enabled), m_start(Clock::now()), m_last(m_start), m_drawn(false) {}
    ~Progress() { Finish(); }

    static int Callback(void* self, curl_off_t downTotal, curl_off_t downNow, curl_off_t upTotal, curl_off_t upNow)
    {
        Progress* progress = static_cast<Progress*>(self);
        if (upTotal > 0 || upNow > 0)
            progress->Update(upNow, upTotal);
        else
            progress->Update(downNow, downTotal);
        return 0;
    }

    // The next transfer's rate is measured from now.
    void Restart()
    {
        Finish();
        m_start = m_last = Clock::now();
    }

    void Finish()
    {
        if (m_drawn)
            fputc('\n', stderr);
        m_drawn = false;
    }

private:
    typedef std::chrono::steady_clock Clock;

    static std::string Bytes(double bytes)
    {
        static const char* const kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB"};
        int unit = 0;
        while (bytes >= 1024 && unit < 4)
        {
            bytes /= 1024;
            ++unit;
        }
        return FXString::Format(unit == 0 ? "%.0f %s" : "%.1f %s", bytes, kUnits[unit]);
    }

    void Update(curl_off_t now, curl_off_t total)
    {
        const Clock::time_point t = Clock::now();
        if (!m_enabled || t - m_last < std::chrono::milliseconds(200))
            return;
        m_last = t;
        const double seconds = std::chrono::duration<double>(t - m_start).count();
        const double rate = seconds > 0 ? static_cast<double>(now) / seconds : 0;
        std::string line = Bytes(static_cast<double>(now));
        if (total > 0)
            line += " of " + Bytes(static_cast<double>(total));
        line += "  " + Bytes(rate) + "/s";
        if (total > 0 && rate > 0 && now <= total)
        {
            const long left = static_cast<long>((total - now) / rate + 0.5);
            line += FXString::Format("  %ld:%02ld:%02ld left", left / 3600, (left / 60) % 60, left % 60);
        }
        fprintf(stderr, "\r%-60s", line.c_str());
        fflush(stderr);
        m_drawn = true;
    }

    bool m_enabled;
    Clock::time_point m_start;
    Clock::time_point m_last;
    bool m_drawn;
};

// A request of the URL's protocol with the command's options applied.
CZyError OpenRequest(const TransferArgs& transfer, std::unique_ptr<RkCURL::RkProtocolReq>& request, Progress* progress);

// Reports a failed transfer with its cause in plain words (Causes.h);
// `request` (when given) tells the server's last status, `reason` the HTTP
// reason phrase where the caller saw one.
int FailTransfer(Output& out, const std::string& what, const CZyError& error, const TransferArgs& transfer,
                 RkCURL::RkProtocolReq* request, const std::string& reason = std::string(), bool upload = false);

// Whether to draw the progress line (a terminal, not --json).
bool ShowProgress(const Output& out);
}  // namespace zytool
