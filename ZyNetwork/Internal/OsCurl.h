// Where the curl binding finds the curl library file when no override is
// given: the platform's file name and search rule
// (ZyNetwork/Posix/CurlPosix.cpp, ZyNetwork/Windows/CurlWindows.cpp).
// Internal: not installed, not exported.
#pragma once

#include <curl/curl.h>

#include <string>

class CZyLibrary;

namespace zy::os
{
// The path (or bare name, for the system's search order) of the curl library
// file to load. `moduleAddress` is an address inside the module that holds
// the binding; the file beside that module comes first.
// - Windows: "RKCurl.dll" in that module's directory, the bare name when the
//   directory cannot be found.
// - Linux: "libRKCurl.so" in that module's directory when that file exists,
//   otherwise the system's "libcurl.so.4".
std::string DefaultCurlLibraryPath(const void* moduleAddress);

// The CA bundle a request object verifies servers with unless told
// otherwise (ZyNetwork/Posix/CurlDefaultsPosix.cpp,
// ZyNetwork/Windows/CurlDefaultsWindows.cpp). True with the file name to give
// curl; false when curl's own default should stay.
// - Windows: ".\curl-ca-bundle.crt", the bundle in the current directory.
// - Linux: "./curl-ca-bundle.crt" when that file exists, otherwise the bundle
//   the loaded libcurl was built with.
bool DefaultCABundle(std::string& path);

// A key or known-hosts file's UTF-8 path as libssh2 opens it (with fopen).
// - Linux: unchanged.
// - Windows: fopen takes the ANSI code page, so a path with non-ASCII
//   characters is converted to it when every character fits, else replaced
//   by the file's short (8.3) name when the file system has one; otherwise
//   it is passed on unchanged (and the file will not be found).
std::string SshFilePath(const std::string& utf8Path);

// Tunes each socket curl opens for a transfer (curl's socket-option
// callback, before the socket connects).
// - Linux: at most 64 KiB of data not yet sent may wait in the socket
//   (TCP_NOTSENT_LOWAT), one upload buffer of curl's. Without the limit an
//   upload fills the socket, the receiver's window closes, and the stream
//   then stops and starts with each window update; with it the sender
//   refills as the data leaves, which on loopback made an FTP upload about a
//   quarter faster. A smaller limit wakes the sender too often for a fast
//   receiver (32 KiB made a PUT to nginx a fifth slower). Data in flight is
//   not limited, so a long path still fills its window. A kernel without the
//   option leaves the socket as it is.
// - Windows: nothing (the system sizes the send backlog itself).
void TuneTransferSocket(curl_socket_t socket);

// Called once the binding has loaded the file. Linux: keeps it (and so
// the libraries it depends on) mapped until the process ends, even after the
// binding releases it at exit. The system's libcurl pulls in libraries
// (LDAP, TLS, SSH) whose global state would otherwise be unmapped while the
// process is exiting, which turns that state into leaks and leaves their own
// exit handlers pointing at unmapped code. Windows: nothing; the file needs
// only system DLLs.
void KeepCurlLibraryMapped(CZyLibrary& library);
}  // namespace zy::os
