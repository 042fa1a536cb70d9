// The socket handle type shared by every flat function and class.
#pragma once

#include <stdint.h>

// Socket handles are unsigned 32-bit on every platform; all ones means none.
typedef uint32_t ZYNET_SOCKET;
#define ZYNET_INVALID_SOCKET ((ZYNET_SOCKET)0xFFFFFFFFu)
