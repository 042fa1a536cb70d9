// Internal helpers of the socket-address functions, exposed for the unit
// tests. Not installed, not exported.
#pragma once

// The Windows version rule for Unix-domain sockets: supported from Windows 10
// build 17763 update revision 2210 on, and on every later build. 1 or 0.
int ZyUnixSupportFromVersion(unsigned long major, unsigned long build, unsigned long revision);
