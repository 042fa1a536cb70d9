// CZyIPAddrBlacklist: reporting, grace, expiry on a settable clock,
// iteration with a cursor that survives removals, copies, and loading from
// a file.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "ZyNetwork/ZyIPAddrBlacklist.h"
#include "ZyUtils/ZyTime.h"

namespace
{
CZyIPAddr Addr(const char* text, int port = 0)
{
    CZyIPAddr address(text);
    if (port)
        address.SetPortNumber(port);
    return address;
}

std::string Text(const CZyIPAddr& address)
{
    CZyString text;
    address.GetAddressString(text);
    return text.str();
}

// A blacklist whose clock the test moves by hand.
struct ClockedBlacklist
{
    int32_t now = 1700000000;
    CZyIPAddrBlacklist list;
    ClockedBlacklist()
    {
        list.SetTimeSource([this] { return now; });
    }
};
}  // namespace

TEST(Blacklist, DefaultsBlacklistOnFirstReportForEverAndKeepFirstReason)
{
    CZyIPAddrBlacklist list;
    CZyString reason("stale");
    unsigned int attempts = 99;
    EXPECT_FALSE(list.IsAddressBlacklisted(Addr("10.0.0.1"), &reason, &attempts));
    EXPECT_TRUE(reason.IsEmpty());
    EXPECT_EQ(attempts, 0u);

    EXPECT_FALSE(list.AddAddressToBlacklist(Addr("10.0.0.1"), CZyString("port scan")).IsError());
    EXPECT_TRUE(list.IsAddressBlacklisted(Addr("10.0.0.1"), &reason, &attempts));
    EXPECT_EQ(reason.str(), "port scan");
    EXPECT_EQ(attempts, 1u);
    EXPECT_TRUE(list.IsAddressBlacklisted(Addr("10.0.0.1"), nullptr, nullptr));

    // A further report neither replaces the reason nor passes the cap of 1.
    list.AddAddressToBlacklist(Addr("10.0.0.1"), CZyString("other"));
    EXPECT_TRUE(list.IsAddressBlacklisted(Addr("10.0.0.1"), &reason, &attempts));
    EXPECT_EQ(reason.str(), "port scan");
    EXPECT_EQ(attempts, 1u);

    // The default clock is the system clock in seconds.
    long lastTime = 0, secondsLeft = 0;
    CZyIPAddr out;
    ASSERT_FALSE(list.GetFirstBlacklistEntry(out, nullptr, nullptr, &lastTime, &secondsLeft).IsError());
    EXPECT_LE(lastTime, static_cast<long>(ZyTime32()));
    EXPECT_GE(lastTime, static_cast<long>(ZyTime32()) - 60);
    EXPECT_EQ(secondsLeft, -1);
}

TEST(Blacklist, GraceAttemptsAndSamePortlessIdentity)
{
    CZyIPAddrBlacklist list;
    list.SetGraceAttempts(3);
    unsigned int attempts = 0;
    CZyString reason;

    list.AddAddressToBlacklist(Addr("192.0.2.5", 80), CZyString("first"));
    list.AddAddressToBlacklist(Addr("192.0.2.5", 8080));  // another port: the same entry
    EXPECT_FALSE(list.IsAddressBlacklisted(Addr("192.0.2.5", 1), &reason, &attempts));
    EXPECT_EQ(attempts, 2u);  // known but within grace: outputs are filled anyway
    EXPECT_EQ(reason.str(), "first");

    list.AddAddressToBlacklist(Addr("192.0.2.5"));
    EXPECT_TRUE(list.IsAddressBlacklisted(Addr("192.0.2.5"), nullptr, &attempts));
    EXPECT_EQ(attempts, 3u);
    list.AddAddressToBlacklist(Addr("192.0.2.5"));
    list.AddAddressToBlacklist(Addr("192.0.2.5"));
    EXPECT_TRUE(list.IsAddressBlacklisted(Addr("192.0.2.5"), nullptr, &attempts));
    EXPECT_EQ(attempts, 3u);

    // Other addresses and families are other entries.
    EXPECT_FALSE(list.IsAddressBlacklisted(Addr("192.0.2.6"), nullptr, nullptr));
    list.AddAddressToBlacklist(Addr("::ffff:192.0.2.5"));
    CZyIPAddr out;
    int entries = 0;
    for (CZyError err = list.GetFirstBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr); !err.IsError();
         err = list.GetNextBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr))
        ++entries;
    EXPECT_EQ(entries, 2);
}

TEST(Blacklist, ExpiryForgivesOneReportPerWholePeriodWithInclusiveBoundary)
{
    ClockedBlacklist c;
    c.list.SetExpirationTime(10);
    c.list.AddAddressToBlacklist(Addr("10.1.1.1"));
    c.list.AddAddressToBlacklist(Addr("10.1.1.2"));

    c.now += 10;  // reported exactly one period ago: still counts
    unsigned int attempts = 0;
    EXPECT_TRUE(c.list.IsAddressBlacklisted(Addr("10.1.1.1"), nullptr, &attempts));
    EXPECT_EQ(attempts, 1u);

    c.now += 15;  // 25 s after its report the first one goes
    CZyString reason("x");
    EXPECT_FALSE(c.list.IsAddressBlacklisted(Addr("10.1.1.1"), &reason, &attempts));
    EXPECT_EQ(attempts, 0u);
    EXPECT_TRUE(reason.IsEmpty());
    CZyIPAddr out;
    ASSERT_FALSE(c.list.GetFirstBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr).IsError());
    EXPECT_EQ(Text(out), "10.1.1.2");  // removed, not just answered false
    EXPECT_TRUE(c.list.GetNextBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr).Is(259));

    // Grace 2: the first forgiven period already brings an address back
    // under the threshold; its time moves by whole periods.
    ClockedBlacklist g;
    g.list.SetExpirationTime(10);
    g.list.SetGraceAttempts(2);
    const int32_t reported = g.now;
    g.list.AddAddressToBlacklist(Addr("10.2.2.2"));
    g.list.AddAddressToBlacklist(Addr("10.2.2.2"));
    EXPECT_TRUE(g.list.IsAddressBlacklisted(Addr("10.2.2.2"), nullptr, &attempts));
    g.now += 13;
    EXPECT_FALSE(g.list.IsAddressBlacklisted(Addr("10.2.2.2"), nullptr, &attempts));
    EXPECT_EQ(attempts, 1u);
    long lastTime = 0, secondsLeft = 0;
    ASSERT_FALSE(g.list.GetFirstBlacklistEntry(out, nullptr, &attempts, &lastTime, &secondsLeft).IsError());
    EXPECT_EQ(lastTime, static_cast<long>(reported + 10));
    EXPECT_EQ(secondsLeft, 7);
    g.now += 100;  // iteration itself never expires anything
    ASSERT_FALSE(g.list.GetFirstBlacklistEntry(out, nullptr, &attempts, &lastTime, &secondsLeft).IsError());
    EXPECT_EQ(secondsLeft, 0);
    EXPECT_EQ(attempts, 1u);
    EXPECT_FALSE(g.list.IsAddressBlacklisted(Addr("10.2.2.2"), nullptr, &attempts));
    EXPECT_TRUE(g.list.GetFirstBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr).Is(259));

    // A huge gap with a short period is worked out in one step.
    ClockedBlacklist h;
    h.list.SetExpirationTime(1);
    h.list.SetGraceAttempts(4000000000u);
    for (int i = 0; i < 3; ++i)
        h.list.AddAddressToBlacklist(Addr("10.3.3.3"));
    h.now += 2;
    EXPECT_FALSE(h.list.IsAddressBlacklisted(Addr("10.3.3.3"), nullptr, &attempts));
    EXPECT_EQ(attempts, 2u);
    h.now = 2000000000;
    EXPECT_FALSE(h.list.IsAddressBlacklisted(Addr("10.3.3.3"), nullptr, &attempts));
    EXPECT_EQ(attempts, 0u);
}

TEST(Blacklist, IterationReportsEntriesAndEndsWith259)
{
    ClockedBlacklist c;
    CZyIPAddr out("203.0.113.1");
    long secondsLeft = 42, lastTime = 42;
    CZyError err = c.list.GetFirstBlacklistEntry(out, nullptr, nullptr, &lastTime, &secondsLeft);
    EXPECT_TRUE(err.Is(259));
    EXPECT_EQ(err.GetErrorKind(), EErrorKind::Win32);
    EXPECT_EQ(err.GetErrorMessage(), "End of blacklist reached");
    ASSERT_EQ(err.GetItems().size(), 2u);
    EXPECT_STREQ(err.GetItems()[0]->Location().Function(), "CZyIPAddrBlacklist::GetNextBlacklistEntry");
    EXPECT_STREQ(err.GetItems()[1]->Location().Function(), "CZyIPAddrBlacklist::GetFirstBlacklistEntry");
    EXPECT_STREQ(err.GetItems()[0]->Location().File(), "ZyNetwork/ZyIPAddrBlacklist");

    c.list.AddAddressToBlacklist(Addr("10.0.0.1"), CZyString("a"));
    c.now += 5;
    c.list.AddAddressToBlacklist(Addr("10.0.0.2"), CZyString("b"));
    c.list.AddAddressToBlacklist(Addr("10.0.0.1"));  // refreshes the first entry's time, keeps its place

    CZyString reason;
    unsigned int attempts = 0;
    ASSERT_FALSE(c.list.GetFirstBlacklistEntry(out, &reason, &attempts, &lastTime, &secondsLeft).IsError());
    EXPECT_EQ(Text(out), "10.0.0.1");
    EXPECT_EQ(reason.str(), "a");
    EXPECT_EQ(lastTime, static_cast<long>(c.now));
    EXPECT_EQ(secondsLeft, -1);  // expiration off
    c.list.SetExpirationTime(30);
    c.now += 4;
    ASSERT_FALSE(c.list.GetNextBlacklistEntry(out, &reason, nullptr, nullptr, &secondsLeft).IsError());
    EXPECT_EQ(Text(out), "10.0.0.2");
    EXPECT_EQ(reason.str(), "b");
    EXPECT_EQ(secondsLeft, 26);
    EXPECT_TRUE(c.list.GetNextBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr).Is(259));
    EXPECT_TRUE(c.list.GetNextBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr).Is(259));
}

TEST(Blacklist, CursorSurvivesRemovalAndCopiesStartAtTheirEnd)
{
    ClockedBlacklist c;
    c.list.SetExpirationTime(10);
    c.list.AddAddressToBlacklist(Addr("10.0.0.1"));
    c.now += 20;
    c.list.AddAddressToBlacklist(Addr("10.0.0.2"));
    c.list.AddAddressToBlacklist(Addr("10.0.0.3"));
    c.now += 1;

    CZyIPAddr out;
    // The cursor now rests on 10.0.0.2; expiring the first entry must not
    // disturb it, and removing the one under the cursor moves it on.
    ASSERT_FALSE(c.list.GetFirstBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr).IsError());
    EXPECT_EQ(Text(out), "10.0.0.1");
    EXPECT_FALSE(c.list.IsAddressBlacklisted(Addr("10.0.0.1"), nullptr, nullptr));
    c.now += 30;
    EXPECT_FALSE(c.list.IsAddressBlacklisted(Addr("10.0.0.2"), nullptr, nullptr));
    ASSERT_FALSE(c.list.GetNextBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr).IsError());
    EXPECT_EQ(Text(out), "10.0.0.3");

    // Removing the last entry while the cursor is on it leaves it at the end.
    c.list.AddAddressToBlacklist(Addr("10.0.0.4"));
    ASSERT_FALSE(c.list.GetFirstBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr).IsError());  // cursor on .4
    c.now += 30;
    EXPECT_FALSE(c.list.IsAddressBlacklisted(Addr("10.0.0.4"), nullptr, nullptr));
    EXPECT_TRUE(c.list.GetNextBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr).Is(259));

    // Copies: own entries, own cursor (at the end), same settings and clock.
    ClockedBlacklist d;
    d.list.SetGraceAttempts(2);
    d.list.AddAddressToBlacklist(Addr("10.9.0.1"));
    d.list.AddAddressToBlacklist(Addr("10.9.0.2"));
    ASSERT_FALSE(d.list.GetFirstBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr).IsError());
    CZyIPAddrBlacklist copy(d.list);
    EXPECT_TRUE(copy.GetNextBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr).Is(259));
    copy.AddAddressToBlacklist(Addr("10.9.0.1"));
    EXPECT_TRUE(copy.IsAddressBlacklisted(Addr("10.9.0.1"), nullptr, nullptr));    // grace 2 came along
    EXPECT_FALSE(d.list.IsAddressBlacklisted(Addr("10.9.0.1"), nullptr, nullptr)); // the original is untouched
    ASSERT_FALSE(d.list.GetNextBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr).IsError());
    EXPECT_EQ(Text(out), "10.9.0.2");

    CZyIPAddrBlacklist assigned;
    ASSERT_FALSE(d.list.GetFirstBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr).IsError());
    assigned = d.list;
    EXPECT_TRUE(assigned.GetNextBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr).Is(259));
    long lastTime = 0;
    ASSERT_FALSE(assigned.GetFirstBlacklistEntry(out, nullptr, nullptr, &lastTime, nullptr).IsError());
    d.now += 3;
    assigned.AddAddressToBlacklist(Addr("10.9.0.1"));
    ASSERT_FALSE(assigned.GetFirstBlacklistEntry(out, nullptr, nullptr, &lastTime, nullptr).IsError());
    EXPECT_EQ(lastTime, static_cast<long>(d.now));  // the copied clock is the test's clock
}

namespace
{
// A file in the current directory, removed at the end of the test.
struct TempFile
{
    std::string path;
    explicit TempFile(const char* tag)
        : path(std::string("zyblacklist-") + tag + "-" + std::to_string(FXProcess::getProcessId()) + ".txt")
    {
    }
    ~TempFile() { std::remove(path.c_str()); }
    void Write(const std::string& bytes)
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out << bytes;
    }
};
}  // namespace

TEST(Blacklist, LoadsFileLineByLine)
{
    CZyIPAddr armSentinel;  // arms the name-collision rule for 127.0.53.53
    (void)armSentinel;
    TempFile file("load");
    std::string content;
    content += "\n";                                   // empty line
    content += std::string(70, 'z') + "\n";            // a name that cannot resolve (label over 63 bytes)
    content += "127.0.53.53\n";                        // refused by the name-collision rule
    content += "127.0.0.1\r\n";                        // CRLF line end
    content += "\r\n";                                 // empty once the line end is gone
    content += std::string(1023, 'a') + "127.0.0.2\n"; // over-long: the tail is a line of its own
    content += "/tmp/zyblacklist.sock\n";              // a local socket path
    content += "127.0.0.1";                            // repeated, without a final line feed
    file.Write(content);

    CZyIPAddrBlacklist list;
    list.SetGraceAttempts(3);
    CZyError err = list.LoadBlacklistFromFile(file.path.c_str());
    ASSERT_FALSE(err.IsError()) << err.AsString();

    CZyIPAddr out;
    CZyString reason("x");
    unsigned int attempts = 0;
    std::vector<std::string> seen;
    std::vector<unsigned int> counts;
    for (err = list.GetFirstBlacklistEntry(out, &reason, &attempts, nullptr, nullptr); !err.IsError();
         err = list.GetNextBlacklistEntry(out, &reason, &attempts, nullptr, nullptr))
    {
        seen.push_back(out.GetAddressFamily() == CZyIPAddr::IP_FAMILY_UNIX ? out.GetUnixSockAddr() : Text(out));
        counts.push_back(attempts);
        EXPECT_TRUE(reason.IsEmpty());
    }
    EXPECT_EQ(seen, (std::vector<std::string>{"127.0.0.1", "127.0.0.2", "/tmp/zyblacklist.sock"}));
    EXPECT_EQ(counts, (std::vector<unsigned int>{2, 1, 1}));
}

TEST(Blacklist, MissingFileReportsPathAndSystemError)
{
    TempFile file("missing");
    std::remove(file.path.c_str());
    CZyIPAddrBlacklist list;
    CZyError err = list.LoadBlacklistFromFile(file.path.c_str());
    ASSERT_TRUE(err.IsError());
    EXPECT_EQ(err.GetErrorCode(), 2);  // no such file, on both platforms
    EXPECT_EQ(err.GetErrorKind(), EErrorKind::Win32);
    EXPECT_EQ(err.GetErrorMessage(), "Failed to open file, FileName=" + file.path);
    EXPECT_STREQ(err.GetItems()[0]->Location().Function(), "CZyIPAddrBlacklist::LoadBlacklistFromFile");

    // An empty file loads nothing and succeeds.
    file.Write("");
    EXPECT_FALSE(list.LoadBlacklistFromFile(file.path.c_str()).IsError());
    CZyIPAddr out;
    EXPECT_TRUE(list.GetFirstBlacklistEntry(out, nullptr, nullptr, nullptr, nullptr).Is(259));
}
