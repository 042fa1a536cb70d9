#include "TransferClients.h"

namespace zytool
{
// The Windows HTTP clients; each is defined in its own file of this folder.
const std::vector<TransferClient>& TransferClients()
{
    static const std::vector<TransferClient> clients = {WinHttpClient(), WinInetClient()};
    return clients;
}
}  // namespace zytool
