// Subcommands over the address class: addr, resolve, reverse, cidr, mask,
// probe and ifaces.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "Tool.h"
#include "ZyNetwork/ZyIPAddr.h"
#include "ZyNetwork/ZySockAddr.h"

namespace zytool
{
namespace
{
Json AddressJson(const CZyIPAddr& address)
{
    Json json = Json::object();
    json["family"] = static_cast<int>(address.GetAddressFamily());
    json["familyName"] = address.GetAddressFamilyString();
    json["port"] = address.GetPortNumber();
    json["text"] = AddressText(address);
    return json;
}
}  // namespace

int RunAddr(Output& out, const std::vector<std::string>& args)
{
    Args parsed = ParseCommandArgs(args, "addr", 1, 1);
    const std::string& text = parsed.positional[0];
    int port = -1;
    if (parsed.HasValue("-p"))
        port = static_cast<int>(ParseInteger(parsed.values["-p"], 0, 65535, "PORT"));

    CZyIPAddr address;
    CZyError error = address.SetAddressString(text.c_str());
    if (error.IsError())
        return out.Fail("'" + text + "' is not a numeric address or Unix path", error);
    if (port >= 0)
    {
        error = address.SetPortNumber(port);
        if (error.IsError())
            return out.Fail("cannot set the port", error);
    }
    const ZYNET_SockAddr record = address.GetSockAddr();
    const int length = ZYNET_GetActualSockAddrLen(&record);

    Json json = AddressJson(address);
    json["length"] = length;
    if (address.GetAddressFamily() == CZyIPAddr::IP_FAMILY_UNIX)
        json["path"] = address.GetUnixSockAddr();
    out.Result()["input"] = text;
    out.Result()["address"] = json;

    out.Line("text:    %s", AddressText(address).c_str());
    out.Line("family:  %d (%s)", static_cast<int>(address.GetAddressFamily()), address.GetAddressFamilyString());
    out.Line("port:    %d", address.GetPortNumber());
    out.Line("length:  %d bytes", length);
    return kExitOk;
}

int RunResolve(Output& out, const std::vector<std::string>& args)
{
    Args parsed = ParseCommandArgs(args, "resolve", 1, 1);
    if (parsed.Has("-4") && parsed.Has("-6"))
        throw UsageError("-4 and -6 exclude each other");
    CZyIPAddr::IP_FAMILY family = CZyIPAddr::IP_FAMILY_UNSPEC;
    if (parsed.Has("-4"))
        family = CZyIPAddr::IP_FAMILY_IPV4;
    if (parsed.Has("-6"))
        family = CZyIPAddr::IP_FAMILY_IPV6;
    const std::string& name = parsed.positional[0];

    std::vector<CZyIPAddr> found;
    if (parsed.Has("--all"))
    {
        CZyError error = CZyIPAddr::GetAllByName(name.c_str(), found, family);
        if (error.IsError())
            return out.Fail("cannot resolve '" + name + "'", error);
    }
    else
    {
        // GetByName leaves its output untouched when the name has no IPv4
        // or IPv6 entry; a cleared address of family 0 tells that apart.
        CZyIPAddr address;
        address.SetAddressFamily(CZyIPAddr::IP_FAMILY_UNSPEC);
        CZyError error = CZyIPAddr::GetByName(name.c_str(), address, family);
        if (error.IsError())
            return out.Fail("cannot resolve '" + name + "'", error);
        if (address.GetAddressFamily() != CZyIPAddr::IP_FAMILY_UNSPEC)
            found.push_back(address);
    }

    Json list = Json::array();
    for (const CZyIPAddr& address : found)
    {
        list.push_back(AddressJson(address));
        out.Line("%-5s %s", address.GetAddressFamilyString(), AddressText(address).c_str());
    }
    out.Result()["name"] = name;
    out.Result()["addresses"] = list;
    if (found.empty())
        out.Line("%s: no IPv4 or IPv6 address", name.c_str());
    return kExitOk;
}

int RunReverse(Output& out, const std::vector<std::string>& args)
{
    Args parsed = ParseCommandArgs(args, "reverse", 1, 1);
    const std::string& text = parsed.positional[0];
    CZyIPAddr address;
    CZyError error = address.SetAddressString(text.c_str());
    if (error.IsError())
        return out.Fail("'" + text + "' is not a numeric address", error);
    CZyString name;
    error = address.GetHostName(name);
    if (error.IsError())
        return out.Fail("no host name for " + text, error);
    out.Result()["address"] = AddressText(address);
    out.Result()["name"] = name.str();
    out.Line("%s", name.c_str());
    return kExitOk;
}

int RunCidr(Output& out, const std::vector<std::string>& args)
{
    Args parsed = ParseCommandArgs(args, "cidr", 2, 2);
    const std::string& address = parsed.positional[0];
    const std::string& block = parsed.positional[1];
    bool within = false;
    CZyError error = CZyIPAddr::CheckIfIpv4AddressIsWithinCidrBlock(address, block, within);
    if (error.IsError())
        return out.Fail("cannot compare " + address + " with " + block, error);
    out.Result()["address"] = address;
    out.Result()["block"] = block;
    out.Result()["within"] = within;
    out.Line("%s is %s %s", address.c_str(), within ? "within" : "not within", block.c_str());
    return kExitOk;
}

int RunMask(Output& out, const std::vector<std::string>& args)
{
    Args parsed = ParseCommandArgs(args, "mask", 1, 1);
    const int prefix = static_cast<int>(ParseInteger(parsed.positional[0], 1, 32, "PREFIX"));
    CZyString mask;
    CZyError error = CZyIPAddr::ConvertCIDRPrefixToSubnetMaskString(prefix, mask);
    if (error.IsError())
        return out.Fail("cannot build the mask", error);
    out.Result()["prefix"] = prefix;
    out.Result()["mask"] = mask.str();
    out.Line("/%d = %s", prefix, mask.c_str());
    return kExitOk;
}

int RunProbe(Output& out, const std::vector<std::string>& args)
{
    ParseCommandArgs(args, "probe", 0, 0);
    struct Probe
    {
        const char* name;
        CZyError (*run)(bool&);
    };
    const Probe probes[] = {{"IPv4", CZyIPAddr::IsIPv4StackPresent},
                            {"IPv6", CZyIPAddr::IsIPv6StackPresent},
                            {"Unix", CZyIPAddr::IsUnixStackPresent}};
    Json stacks = Json::object();
    for (const Probe& probe : probes)
    {
        bool present = false;
        CZyError error = probe.run(present);
        if (error.IsError())
            return out.Fail(std::string("the ") + probe.name + " probe failed", error);
        stacks[probe.name] = present;
        out.Line("%-5s %s", probe.name, present ? "present" : "absent");
    }
    out.Result()["stacks"] = stacks;
    return kExitOk;
}

int RunIfaces(Output& out, const std::vector<std::string>& args)
{
    Args parsed = ParseCommandArgs(args, "ifaces", 0, 0);

    std::vector<std::pair<CZyIPAddr, CZyIPAddr>> pairs;
    CZyError error = CZyIPAddr::GetIFList(pairs, CZyIPAddr::IP_FAMILY_UNSPEC);
    if (error.IsError())
        return out.Fail("cannot list the interfaces", error);
    Json list = Json::array();
    out.Line("%-5s %-40s %s", "", "address", "network (IPv4)");
    for (const auto& pair : pairs)
    {
        // The library derives a network address for IPv4 only; the second
        // member of an IPv6 pair is not a network address.
        const bool ipv4 = pair.first.GetAddressFamily() == CZyIPAddr::IP_FAMILY_IPV4;
        const std::string network = ipv4 ? AddressText(pair.second) : "-";
        Json entry = Json::object();
        entry["family"] = pair.first.GetAddressFamilyString();
        entry["address"] = AddressText(pair.first);
        entry["network"] = ipv4 ? Json(network) : Json();
        list.push_back(entry);
        out.Line("%-5s %-40s %s", pair.first.GetAddressFamilyString(), AddressText(pair.first).c_str(),
                 network.c_str());
    }
    out.Result()["interfaces"] = list;

    if (parsed.Has("--macs"))
    {
        std::vector<std::string> macs;
        error = CZyIPAddr::GetMACList(macs, CZyIPAddr::IP_FAMILY_UNSPEC);
        if (error.IsError())
            return out.Fail("cannot list the hardware addresses", error);
        out.Result()["macs"] = Json(macs);
        out.Line("hardware addresses:%s", macs.empty() ? " none" : "");
        for (const std::string& mac : macs)
            out.Line("  %s", mac.c_str());
    }
    if (parsed.Has("--names"))
    {
        CZyIPAddr::GetAllInterfacesArgs_t request = {true, true};
        CZyIPAddr::GetAllInterfacesRet_t answer;
        error = CZyIPAddr::GetAllInterfaces(request, answer, CZyIPAddr::IP_FAMILY_UNSPEC);
        if (error.IsError())
            return out.Fail("cannot name the interfaces", error);
        out.Result()["names"] = Json(answer.hostNames);
        out.Line("host names of the non-loopback addresses:%s", answer.hostNames.empty() ? " none" : "");
        for (const std::string& name : answer.hostNames)
            out.Line("  %s", name.c_str());
    }
    return kExitOk;
}
}  // namespace zytool
