// The platform types that the public interface names: sockaddr_in,
// sockaddr_in6 and timeval. This is the only public header that differs by
// platform.
#pragma once

#if defined(_WIN32)
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <netinet/in.h>
#include <sys/time.h>
#endif

struct servent;
