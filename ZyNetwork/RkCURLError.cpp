#include "ZyNetwork/RkCURLError.h"

#include <cstdarg>
#include <new>

#include "ZyUtils/ZyString.h"

namespace RkCURL
{
namespace
{
// Bits 16 to 27 of a domain code hold this field; bit 29 marks a domain code.
const uint32_t kDomainField = 0xDD0u;
const uint32_t kDomainBit = 0x20000000u;

int32_t DomainCode(int code)
{
    return static_cast<int32_t>(static_cast<uint32_t>(code) | kRkCURLDomainMark);
}

// The description of a printf-style format. A text too long for the bounded
// formatter is kept as far as it went, marked at its start.
std::string Describe(const char* format, va_list args)
{
    std::string text;
    if (FXString::FormatArgList(text, format, args).IsError())
        text.insert(0, "[BUFFEROVERFLOW]");
    return text;
}

// An item that cannot be allocated is left out rather than thrown for; the
// error made with it stays an error, without items.
FXErrorItemPtr Own(FXErrorItem* item)
{
    if (item == nullptr)
        return FXErrorItemPtr();
    try
    {
        return FXErrorItemPtr(item);  // deletes the item when it throws
    }
    catch (const std::bad_alloc&)
    {
        return FXErrorItemPtr();
    }
}

FXErrorItemPtr NewItem(const FXCodeLocation& location, int code)
{
    return Own(new (std::nothrow) FXErrorItemRkCURL(location, code));
}

FXErrorItemPtr NewItem(const FXCodeLocation& location, int code, const std::string& description)
{
    return Own(new (std::nothrow) FXErrorItemRkCURLDescription(location, code, description));
}
}  // namespace

FXErrorItemRkCURL::FXErrorItemRkCURL(const FXCodeLocation& location, int code)
    : FXErrorItem(location, EErrorKind::RkCURL, code, std::string()), code(code)
{
}

std::string FXErrorItemRkCURL::AsString() const
{
    return AsString(ERROR_OUTPUT_LONG);
}

std::string FXErrorItemRkCURL::AsString(EErrorOutputFormat format) const
{
    // The plain item's text (kind, code, location) without the description,
    // then the domain tag: "curl error 28 at F (file:line)/RkCURL.28.0x1C".
    std::string text = FXErrorItem(m_location, m_kind, code, std::string()).AsString(format);
    text += FXString::Format("/RkCURL.%d.0x%X", code, static_cast<unsigned>(code));
    return text;
}

FXErrorItem* FXErrorItemRkCURL::Clone() const
{
    return new FXErrorItemRkCURL(*this);
}

FXErrorItemRkCURLDescription::FXErrorItemRkCURLDescription(const FXCodeLocation& location, int code,
                                                           const std::string& description)
    : FXErrorItemRkCURL(location, code), description(description)
{
    // The description is the item's message too, so that GetErrorMessage()
    // and HasMessage() see it.
    m_message = description;
}

std::string FXErrorItemRkCURLDescription::AsString() const
{
    return AsString(ERROR_OUTPUT_LONG);
}

std::string FXErrorItemRkCURLDescription::AsString(EErrorOutputFormat format) const
{
    return FXErrorItemRkCURL::AsString(format) + "-" + description;
}

FXErrorItem* FXErrorItemRkCURLDescription::Clone() const
{
    return new FXErrorItemRkCURLDescription(*this);
}

CZyError ErrorRkCURL(const FXCodeLocation& location, int code)
{
    return CZyError(DomainCode(code), NewItem(location, code));
}

CZyError ErrorRkCURL(const FXCodeLocation& location, int code, const char* format, ...)
{
    if (!format || !*format)
        return ErrorRkCURL(location, code);
    va_list args;
    va_start(args, format);
    const std::string text = Describe(format, args);
    va_end(args);
    return CZyError(DomainCode(code), NewItem(location, code, text));
}

CZyError& PushRkCURL(CZyError& error, const FXCodeLocation& location, int code)
{
    return error.Push(NewItem(location, code));
}

CZyError& PushRkCURL(CZyError& error, const FXCodeLocation& location, int code, const char* format, ...)
{
    if (!format || !*format)
        return PushRkCURL(error, location, code);
    va_list args;
    va_start(args, format);
    const std::string text = Describe(format, args);
    va_end(args);
    return error.Push(NewItem(location, code, text));
}

int GetRkCURL(const CZyError& error)
{
    if (!error.IsError())
        return 0;
    const uint32_t value = static_cast<uint32_t>(error.GetErrorCode());
    if (!(value & kDomainBit))
        return -1;
    if (((value >> 16) & 0xFFFu) == kDomainField)
        return static_cast<int>(value & 0xFFFFu);
    return -1;
}

bool IsRkCURL(const CZyError& error, int code)
{
    return error.Is(DomainCode(code));
}

bool IsNotRkCURL(const CZyError& error, int code)
{
    return error.IsNot(DomainCode(code));
}
}  // namespace RkCURL
