#include <unistd.h>

#include "Terminal.h"

namespace zynet
{
bool StderrIsTerminal()
{
    return isatty(STDERR_FILENO) == 1;
}

void SetBinaryStdout() {}
}  // namespace zynet
