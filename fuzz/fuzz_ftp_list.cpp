// The FTP and SFTP listing parsers over arbitrary bytes: LIST lines of both
// server styles and MLSD facts.
#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "ZyNetwork/Internal/ListingParsers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const char* text = reinterpret_cast<const char*>(data);
    std::vector<zy::listing::Entry> entries;
    zy::listing::Counts counts;
    // A fixed "now" keeps runs reproducible.
    zy::listing::ParseList(text, size, 1795000000, entries, counts);
    zy::listing::ParseMlsd(text, size, entries, counts);
    if (counts.entries != entries.size())
        __builtin_trap();
    return 0;
}
