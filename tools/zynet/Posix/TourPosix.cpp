// The tour's platform transfer steps: this platform's only HTTP client is the
// curl binding, which the common transfer step covers.
#include "Tour.h"

namespace zytool
{
std::vector<TourStep> PlatformTransferSteps()
{
    return {};
}
}  // namespace zytool
