// The string helpers over arbitrary bytes: UTF-8 <-> UTF-16 / wide
// conversions and base64.
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "ZyUtils/ZyString.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string bytes(reinterpret_cast<const char*>(data), size);

    // One conversion turns any input into valid UTF-8; from then on the
    // round trips are exact.
    std::string clean = FXString::ToUtf8(FXString::ToUtf16(bytes));
    if (FXString::ToUtf8(FXString::ToUtf16(clean)) != clean || FXString::ToString(FXString::ToWstring(clean)) != clean)
        __builtin_trap();
    if (FXString::ToString(FXString::ToWstring(bytes)) != clean)
        __builtin_trap();

    // The same bytes read as UTF-16 units.
    std::u16string units(size / 2, u'\0');
    for (size_t i = 0; i + 1 < size; i += 2)
        units[i / 2] = static_cast<char16_t>(data[i] | (data[i + 1] << 8));
    std::string fromUnits = FXString::ToUtf8(units);
    if (FXString::ToUtf8(FXString::ToUtf16(fromUnits)) != fromUnits)
        __builtin_trap();

    std::string decoded;
    if (!FXString::Base64Decode(FXString::Base64Encode(bytes), decoded) || decoded != bytes)
        __builtin_trap();
    FXString::Base64Decode(bytes, decoded);
    return 0;
}
