#include <unistd.h>

#include "Terminal.h"

namespace zytool
{
bool StderrIsTerminal()
{
    return isatty(STDERR_FILENO) == 1;
}

void SetBinaryStdout() {}
}  // namespace zytool
