// blacklist: loads a blacklist file, lists its entries and checks addresses.
#include <string>
#include <vector>

#include "Tool.h"
#include "ZyNetwork/ZyIPAddr.h"
#include "ZyNetwork/ZyIPAddrBlacklist.h"

namespace zytool
{
namespace
{
// Winsock's "no more items": the end of the entry list.
const int kNoMoreItems = 259;
}  // namespace

int RunBlacklist(Output& out, const std::vector<std::string>& args)
{
    Args parsed = ParseCommandArgs(args, "blacklist", 1, static_cast<size_t>(-1));
    const std::string& file = parsed.positional[0];

    // Addresses to check are converted first, so that a bad one is reported
    // before anything is printed. A text that is not a numeric address is
    // resolved as a host name.
    std::vector<std::pair<std::string, CZyIPAddr>> checks;
    for (size_t i = 1; i < parsed.positional.size(); ++i)
    {
        const std::string& text = parsed.positional[i];
        CZyIPAddr address;
        if (address.SetAddressString(text.c_str()).IsError())
        {
            CZyError error = CZyIPAddr::GetByName(text.c_str(), address, CZyIPAddr::IP_FAMILY_UNSPEC);
            if (error.IsError())
                return out.Fail("cannot resolve '" + text + "'", error);
        }
        checks.emplace_back(text, address);
    }

    CZyIPAddrBlacklist blacklist;
    CZyError error = blacklist.LoadBlacklistFromFile(file.c_str());
    if (error.IsError())
        return out.Fail("cannot load " + file, error);

    Json entries = Json::array();
    std::vector<std::string> lines;
    CZyIPAddr address;
    CZyString reason;
    unsigned int attempts = 0;
    long lastTime = 0;
    long secondsLeft = 0;
    error = blacklist.GetFirstBlacklistEntry(address, &reason, &attempts, &lastTime, &secondsLeft);
    while (!error.IsError())
    {
        Json entry = Json::object();
        entry["address"] = AddressText(address);
        entry["family"] = address.GetAddressFamilyString();
        entry["attempts"] = attempts;
        entry["lastReported"] = lastTime;
        entries.push_back(entry);
        lines.push_back(FXString::Format("  %-40s attempts %u", AddressText(address).c_str(), attempts));
        error = blacklist.GetNextBlacklistEntry(address, &reason, &attempts, &lastTime, &secondsLeft);
    }
    if (!error.Is(kNoMoreItems))
        return out.Fail("cannot list the entries", error);

    out.Result()["file"] = file;
    out.Result()["entries"] = entries;
    out.Line("%u entr%s in %s", static_cast<unsigned>(entries.size()), entries.size() == 1 ? "y" : "ies",
             file.c_str());
    for (const std::string& line : lines)
        out.Line("%s", line.c_str());

    Json results = Json::array();
    for (const auto& check : checks)
    {
        CZyString why;
        unsigned int count = 0;
        const bool listed = blacklist.IsAddressBlacklisted(check.second, &why, &count);
        Json result = Json::object();
        result["input"] = check.first;
        result["address"] = AddressText(check.second);
        result["blacklisted"] = listed;
        result["attempts"] = count;
        results.push_back(result);
        if (listed)
            out.Line("%s: blacklisted (attempts %u)", check.first.c_str(), count);
        else
            out.Line("%s: not blacklisted", check.first.c_str());
    }
    out.Result()["checks"] = results;
    return kExitOk;
}
}  // namespace zytool
