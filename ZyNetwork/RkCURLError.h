// The error domain of the transfer classes: errors that carry a curl result
// code. The code of such a CZyError is the curl code OR-ed with the domain
// mark 0xEDD00000; its items record the curl code and, where given, a text.
#pragma once

#include <stdint.h>

#include <string>

#include "ZyUtils/ZyError.h"
#include "ZyUtils/ZyExport.h"

namespace RkCURL
{
const uint32_t kRkCURLDomainMark = 0xEDD00000u;

// An item carrying the curl code unchanged. Its text is the location's,
// followed by "/RkCURL.<code>.0x<CODE IN HEX>".
class ZYNET_API FXErrorItemRkCURL : public FXErrorItem
{
public:
    // An item for curl result `code` raised or passed on at `location`.
    FXErrorItemRkCURL(const FXCodeLocation& location, int code);
    std::string AsString() const override;
    std::string AsString(EErrorOutputFormat format) const override;
    FXErrorItem* Clone() const override;

    int code;
};

// The same with a description, rendered after a "-".
class ZYNET_API FXErrorItemRkCURLDescription : public FXErrorItemRkCURL
{
public:
    // The same with a description.
    FXErrorItemRkCURLDescription(const FXCodeLocation& location, int code, const std::string& description);
    std::string AsString() const override;
    std::string AsString(EErrorOutputFormat format) const override;
    FXErrorItem* Clone() const override;

    std::string description;
};

// A new transfer error for curl result `code`; its error code is `code` OR-ed
// with kRkCURLDomainMark.
ZYNET_API CZyError ErrorRkCURL(const FXCodeLocation& location, int code);
// printf-style description; a null or empty format gives the form above. A
// text too long for the formatter is kept, prefixed with "[BUFFEROVERFLOW]".
ZYNET_API CZyError ErrorRkCURL(const FXCodeLocation& location, int code, const char* format, ...)
    ZY_PRINTF_LIKE(3, 4);
// Passes `error` on with an item carrying curl result `code` (and a
// printf-style description); the error's own code stays. Returns `error`.
// @{
ZYNET_API CZyError& PushRkCURL(CZyError& error, const FXCodeLocation& location, int code);
ZYNET_API CZyError& PushRkCURL(CZyError& error, const FXCodeLocation& location, int code, const char* format, ...)
    ZY_PRINTF_LIKE(4, 5);
// @}
// 0 for success, -1 for an error of another domain, else the curl code.
ZYNET_API int GetRkCURL(const CZyError& error);
// Whether `error` is (or is not) the transfer error of curl result `code`.
// @{
ZYNET_API bool IsRkCURL(const CZyError& error, int code);
ZYNET_API bool IsNotRkCURL(const CZyError& error, int code);
// @}
}  // namespace RkCURL
