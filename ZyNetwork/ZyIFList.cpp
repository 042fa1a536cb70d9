// The machine's interface addresses, hardware addresses and, in one call,
// the address texts and host names of all interfaces but loopback. Every
// list comes from the platform's adapter table (ZyNetwork/Internal/OsAdapters.h),
// read with the same two-call protocol, log texts and codes on every
// platform.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "ZyNetwork/Internal/OsAdapters.h"
#include "ZyNetwork/Internal/ZyIFListInternal.h"
#include "ZyNetwork/ZyIPAddr.h"
#include "ZyNetwork/ZySockAddr.h"
#include "ZyUtils/LogWriter.h"
#include "ZyUtils/ZyError.h"
#include "ZyUtils/ZyString.h"
#include "ZyUtils/Internal/ErrorCodes.h"

static const char kZyFile[] = "ZyNetwork/ZyIFList";

zy::os::AdapterTable::~AdapterTable() = default;

namespace zy::iflist
{
CZyError ReadUsedAdapters(zy::os::AdapterTable& table, const char* function, int firstFamily, int secondFamily,
                          std::vector<zy::os::AdapterInfo>& used)
{
    uint32_t bytes = 0;
    uint32_t result = table.QuerySize(firstFamily, &bytes);
    if (result == zy::os::ADAPTERS_NO_DATA)
    {
        if (ZyLogLevel() > 1)
            ZY_LOG(2, function, "No interfaces available");
        return CZyError::Success();
    }
    if (result != zy::os::ADAPTERS_BUFFER_OVERFLOW)
    {
        ZY_LOG(-1, function, "Can't figure out buffer space for adapter addresses.");
        ZY_LOG(-1, function, "Expected error: %d or %d (), but received %d", static_cast<int>(zy::os::ADAPTERS_NO_DATA),
               static_cast<int>(zy::os::ADAPTERS_BUFFER_OVERFLOW), static_cast<int>(result));
        CZyError err =
            FXErrorUtil::ErrorWin32(ZY_LOC(function), result, "Can't figure out buffer space for adapter addresses.");
        std::string failed = table.FailedCall();
        if (!failed.empty())
            err.Push(ZY_LOC(function), "%s failed", failed.c_str());
        return err;
    }
    if (!table.Allocate(bytes))
    {
        ZY_LOG(-1, function, "Error allocating memory for pAdapterAddBuff");
        return FXErrorUtil::ErrorWin32(ZY_LOC(function), zy::os::ADAPTERS_NO_MEMORY,
                                       "Error allocating memory for pAdapterAddBuff");
    }
    result = table.Fill(secondFamily);
    if (result != zy::os::ADAPTERS_OK)
    {
        table.Release();
        ZY_LOG(-1, function, "Error fetching adapter addresses: %d", static_cast<int>(result));
        CZyError err = FXErrorUtil::ErrorWin32(ZY_LOC(function), result, "Error fetching adapter addresses");
        std::string failed = table.FailedCall();
        if (!failed.empty())
            err.Push(ZY_LOC(function), "%s failed", failed.c_str());
        return err;
    }
    for (const zy::os::AdapterInfo& adapter : table.Adapters())
    {
        if (adapter.type == zy::os::ADAPTER_TYPE_SOFTWARE_LOOPBACK || adapter.operStatus == zy::os::ADAPTER_OPER_UP)
            used.push_back(adapter);
        else
            ZY_LOG(-1, function, "Skipping disabled interface '%s'", adapter.name.c_str());
    }
    table.Release();
    return CZyError::Success();
}

bool MakeInterfacePair(const zy::os::AdapterUnicast& unicast, std::pair<CZyIPAddr, CZyIPAddr>& pair)
{
    const ZYNET_SockAddr& reported = unicast.address;
    if (reported.family == ZYNET_AF_INET)
    {
        pair.first = CZyIPAddr(reported);
        unsigned int prefix = unicast.prefixLength;
        if (prefix >= 1 && prefix <= 32)
        {
            // The network address: the address with its host bits cleared.
            ZYNET_SockAddr network = reported;
            for (unsigned int i = 0; i < 4; ++i)
            {
                unsigned int bits = prefix > 8 * i ? prefix - 8 * i : 0;
                if (bits > 8)
                    bits = 8;
                uint8_t mask = bits == 0 ? 0 : static_cast<uint8_t>(0xFFu << (8 - bits));
                network.in4.addr[i] &= mask;
            }
            pair.second = CZyIPAddr(network);
        }
        else
            pair.second = CZyIPAddr();
        return true;
    }
    if (reported.family == ZYNET_AF_INET6)
    {
        pair.first = CZyIPAddr(reported);
        // Kept as callers know it: for IPv6 the second member is an IPv4
        // record holding the address's fourth 16-bit group and two zero bytes.
        ZYNET_SockAddr quirk;
        std::memset(&quirk, 0, sizeof(quirk));
        quirk.in4.family = ZYNET_AF_INET;
        quirk.in4.addr[0] = reported.in6.addr[6];
        quirk.in4.addr[1] = reported.in6.addr[7];
        pair.second = CZyIPAddr(quirk);
        return true;
    }
    return false;
}

std::string FormatHardwareAddress(const std::vector<uint8_t>& bytes)
{
    std::string text;
    char piece[8];
    for (uint8_t byte : bytes)
    {
        std::snprintf(piece, sizeof(piece), "%02x:", static_cast<unsigned int>(byte));
        text += piece;
    }
    return FXString::TrimRight(text, ":");
}

CZyError CollectInterfacePairs(zy::os::AdapterTable& table, std::vector<std::pair<CZyIPAddr, CZyIPAddr>>& list,
                               int family)
{
    list.clear();
    std::vector<zy::os::AdapterInfo> used;
    CZyError err = ReadUsedAdapters(table, "CZyIPAddr::GetIFList", family, family, used);
    if (err.IsError())
        return err;
    for (const zy::os::AdapterInfo& adapter : used)
    {
        for (const zy::os::AdapterUnicast& unicast : adapter.unicast)
        {
            std::pair<CZyIPAddr, CZyIPAddr> pair;
            if (MakeInterfacePair(unicast, pair))
                list.push_back(pair);
            else
                ZY_LOG(-1, "CZyIPAddr::GetIFList", "Unknown address family (%d), skipping",
                       static_cast<int>(unicast.address.family));
        }
    }
    return CZyError::Success();
}

CZyError CollectHardwareAddresses(zy::os::AdapterTable& table, std::vector<std::string>& list, int family)
{
    // The second call lists every family, whatever the first one asked.
    std::vector<zy::os::AdapterInfo> used;
    CZyError err = ReadUsedAdapters(table, "CZyIPAddr::GetMACList", family, ZYNET_AF_UNSPEC, used);
    if (err.IsError())
        return err;
    for (const zy::os::AdapterInfo& adapter : used)
        if (!adapter.physicalAddress.empty())
            list.push_back(FormatHardwareAddress(adapter.physicalAddress));
    return CZyError::Success();
}
}  // namespace zy::iflist

CZyError CZyIPAddr::GetIFList(std::vector<std::pair<CZyIPAddr, CZyIPAddr>>& list, IP_FAMILY family)
{
    std::unique_ptr<zy::os::AdapterTable> table = zy::os::NewAdapterTable();
    return zy::iflist::CollectInterfacePairs(*table, list, family);
}

CZyError CZyIPAddr::GetIFList(std::vector<CZyIPAddr>& list, IP_FAMILY family)
{
    std::vector<std::pair<CZyIPAddr, CZyIPAddr>> pairs;
    CZyError err = GetIFList(pairs, family);
    if (err.IsError())
        return err.Push(ZY_LOC("CZyIPAddr::GetIFList"));
    // Appends behind what the caller's vector holds; it is not emptied.
    list.reserve(list.size() + pairs.size());
    for (const std::pair<CZyIPAddr, CZyIPAddr>& pair : pairs)
        list.push_back(pair.first);
    return CZyError::Success();
}

CZyError CZyIPAddr::GetMACList(std::vector<std::string>& list, IP_FAMILY family)
{
    std::unique_ptr<zy::os::AdapterTable> table = zy::os::NewAdapterTable();
    return zy::iflist::CollectHardwareAddresses(*table, list, family);
}

CZyError CZyIPAddr::GetAllInterfaces(GetAllInterfacesArgs_t& args, GetAllInterfacesRet_t& ret,
                                     const IP_FAMILY& family)
{
    if (!args.wantAddresses && !args.wantHostNames)
        return FXErrorUtil::ErrorWin32(ZY_LOC("CZyIPAddr::GetAllInterfaces"), zy::err::kInvalidParameter,
                                       "Nothing requested in arguments.");
    if (args.wantHostNames)
        args.wantAddresses = true;

    ZYNET_SockAddr loopback4;
    ZYNET_SockAddr loopback6;
    std::memset(&loopback4, 0, sizeof(loopback4));
    std::memset(&loopback6, 0, sizeof(loopback6));
    ZYNET_str2ip("127.0.0.1", &loopback4);
    ZYNET_str2ip("::1", &loopback6);
    const CZyIPAddr loopbackIPv4(loopback4);
    const CZyIPAddr loopbackIPv6(loopback6);

    // A failure leaves whatever the list holds; the call goes on with it.
    GetIFList(ret.interfaces, family);

    for (const CZyIPAddr& address : ret.interfaces)
    {
        if (address == loopbackIPv4 || address == loopbackIPv6)
            continue;
        char text[128] = {0};
        if (ZYNET_ip2str(address.SockAddrPtr(), text, sizeof(text)) != 0)
            continue;  // nothing to show for an address without a text form
        ret.addressTexts.push_back(text);
        if (args.wantHostNames)
        {
            char name[256] = {0};
            if (ZYNET_ip2name(address.SockAddrPtr(), name, sizeof(name)) == 0 && name[0] != '\0')
                ret.hostNames.push_back(FXString::ToLower(name));
        }
    }
    // Address texts keep their duplicates; host names do not.
    std::sort(ret.addressTexts.begin(), ret.addressTexts.end());
    std::sort(ret.hostNames.begin(), ret.hostNames.end());
    ret.hostNames.erase(std::unique(ret.hostNames.begin(), ret.hostNames.end()), ret.hostNames.end());
    return CZyError::Success();
}
