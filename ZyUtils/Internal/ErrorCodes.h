// The error-code numbers that the library raises itself, named once. They
// are the same numbers on every platform: Win32 codes, Winsock codes (the
// portable socket codes; POSIX errno values are translated to them at the OS
// boundary) and the few errno-kind codes that the accept wait and the address
// family checks report.
// Internal: not installed.
#pragma once

namespace zy::err
{
// ---- Win32 codes -----------------------------------------------------------
constexpr int kAccessDeniedWin32 = 5;    // ERROR_ACCESS_DENIED
constexpr int kInvalidHandle = 6;        // ERROR_INVALID_HANDLE
constexpr int kNotEnoughMemory = 8;      // ERROR_NOT_ENOUGH_MEMORY
constexpr int kOutOfMemory = 14;         // ERROR_OUTOFMEMORY
constexpr int kNotSupported = 50;        // ERROR_NOT_SUPPORTED
constexpr int kInvalidParameter = 87;    // ERROR_INVALID_PARAMETER
constexpr int kBufferOverflow = 111;     // ERROR_BUFFER_OVERFLOW: a formatted text too long
constexpr int kDiskFull = 112;           // ERROR_DISK_FULL: a short write
constexpr int kModuleNotFound = 126;     // ERROR_MOD_NOT_FOUND: a module that will not load
constexpr int kProcNotFound = 127;       // ERROR_PROC_NOT_FOUND: a missing symbol
constexpr int kNoMoreItems = 259;        // ERROR_NO_MORE_ITEMS
constexpr int kStateError = 774;         // ERROR_INVALID_STATE-kind: the object is not in a state for the call
constexpr int kNotFound = 1168;          // ERROR_NOT_FOUND

// ---- Winsock codes ---------------------------------------------------------
constexpr int kAccessDenied = 10013;       // WSAEACCES
constexpr int kFault = 10014;              // WSAEFAULT: a null pointer or unusable buffer
constexpr int kInvalidArgument = 10022;    // WSAEINVAL
constexpr int kWouldBlock = 10035;         // WSAEWOULDBLOCK
constexpr int kInvalidSocket = 10038;      // WSAENOTSOCK
constexpr int kSocketTypeNotSupported = 10044;  // WSAESOCKTNOSUPPORT
constexpr int kAfNotSupported = 10047;     // WSAEAFNOSUPPORT
constexpr int kHostNotFound = 11001;       // WSAHOST_NOT_FOUND
constexpr int kNoData = 11004;             // WSANO_DATA

// ---- errno-kind codes ------------------------------------------------------
constexpr int kErrnoIo = 5;                 // EIO: an exception on the accept wait
constexpr int kErrnoNoFamily = 102;         // EAFNOSUPPORT as the C runtime numbers it
constexpr int kErrnoTime = 137;             // ETIME (timer expired): the accept wait timed out

// ---- transfer classes ------------------------------------------------------
// The int error of the request classes: an argument or a state they refuse
// (not initialised, no buffer, a bad path or size, an unknown info type) or
// a step that gave nothing (encoding, a missing info string).
constexpr int kTransferRefused = 1;
constexpr int kUrlEmpty = 101;              // a request with no URL set
// The transfer-domain code when curl gives no handle (no curl result exists).
constexpr int kNoCurlHandle = -1;
}  // namespace zy::err
