// Windows keeps no journal of closed handles: its selector waits on the
// registered sets themselves and has no kernel event set to keep in step.
#include "ZyNetwork/Internal/CloseJournal.h"

namespace zy::journal
{
void NoteClosed(ZYNET_SOCKET) {}

uint64_t Generation()
{
    return 0;
}

bool ClosedSince(uint64_t, uint64_t, std::vector<ZYNET_SOCKET>&)
{
    return true;
}
}  // namespace zy::journal
