// Address texts, CIDR blocks and prefixes over arbitrary bytes. The input is
// split at its first NUL into an address and a block; both must be handled
// without a crash, and what parses must print and parse back to itself.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string>

#include "ZyNetwork/ZyIPAddr.h"
#include "ZyNetwork/ZySockAddr.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string input(reinterpret_cast<const char*>(data), size);
    size_t split = input.find('\0');
    std::string address = input.substr(0, split);
    std::string block = split == std::string::npos ? std::string() : input.substr(split + 1);
    block = block.substr(0, block.find('\0'));

    ZYNET_SockAddr record;
    memset(&record, 0, sizeof(record));
    if (ZYNET_str2ip(address.c_str(), &record) == 0)
    {
        char text[128];
        if (ZYNET_ip2str(&record, text, sizeof(text)) == 0)
        {
            ZYNET_SockAddr again;
            memset(&again, 0, sizeof(again));
            // What the library printed it must read back as the same address.
            if (ZYNET_str2ip(text, &again) != 0)
                __builtin_trap();
        }
    }

    CZyIPAddr parsed;
    if (!parsed.SetAddressString(address.c_str()).IsError())
    {
        CZyString text;
        CZyIPAddr copy;
        if (parsed.GetAddressString(text).IsError() || copy.SetAddressString(text.c_str()).IsError() ||
            !(copy == parsed))
            __builtin_trap();
    }

    bool within = false;
    CZyIPAddr::CheckIfIpv4AddressIsWithinCidrBlock(address, block, within);

    int prefix = size > 0 ? static_cast<int8_t>(data[0]) : 0;
    CZyString mask;
    CZyIPAddr::ConvertCIDRPrefixToSubnetMaskString(prefix, mask);
    return 0;
}
