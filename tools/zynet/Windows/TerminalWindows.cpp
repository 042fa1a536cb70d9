#include <fcntl.h>
#include <io.h>
#include <stdio.h>

#include "Terminal.h"

namespace zytool
{
bool StderrIsTerminal()
{
    return _isatty(_fileno(stderr)) != 0;
}

void SetBinaryStdout()
{
    fflush(stdout);
    _setmode(_fileno(stdout), _O_BINARY);
}
}  // namespace zytool
