// Blacklist files over arbitrary bytes. Lines are host names, literals or
// socket paths; a name goes to the resolver, so scripts/fuzz.sh runs this
// target in a network namespace of its own where nothing leaves the machine.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

#include <string>

#include "ZyNetwork/ZyIPAddrBlacklist.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::string path = "/tmp/zynet-fuzz-blacklist-" + std::to_string(getpid()) + ".txt";
    FILE* file = fopen(path.c_str(), "wb");
    if (!file)
        return 0;
    fwrite(data, 1, size, file);
    fclose(file);

    CZyIPAddrBlacklist blacklist;
    blacklist.LoadBlacklistFromFile(path.c_str());
    CZyIPAddr address;
    unsigned int attempts = 0;
    for (CZyError error = blacklist.GetFirstBlacklistEntry(address, nullptr, &attempts, nullptr, nullptr);
         !error.IsError(); error = blacklist.GetNextBlacklistEntry(address, nullptr, &attempts, nullptr, nullptr))
        blacklist.IsAddressBlacklisted(address, nullptr, &attempts);
    return 0;
}
