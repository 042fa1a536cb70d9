#include "TransferClients.h"

namespace zytool
{
// Linux has only curl.
const std::vector<TransferClient>& TransferClients()
{
    static const std::vector<TransferClient> none;
    return none;
}
}  // namespace zytool
