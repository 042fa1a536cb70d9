// The Windows half of the OS boundary: errors and families. Winsock's codes
// and family numbers are already the portable ones; only the resolver codes
// that Wine lets through from its host are normalised.
#include "ZyNetwork/Windows/WindowsSupport.h"

namespace zy::os
{
using namespace win;

int LastError()
{
    return WSAGetLastError();
}

void SetLastError(int code)
{
    WSASetLastError(code);
}

int TranslateErrno(int osError)
{
    return osError;  // Winsock's codes are the portable ones
}

int TranslateResolverError(int osCode)
{
    return NormaliseResolverCode(osCode);  // Winsock codes already, bar Wine's leaks
}

int FamilyToOs(int portableFamily)
{
    return portableFamily;
}

int FamilyFromOs(int osFamily)
{
    return osFamily;
}
}  // namespace zy::os
