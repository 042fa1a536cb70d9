// Error values: a code plus a stack of items recording where an error was
// raised and every place that passed it on.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "ZyUtils/ZyExport.h"

// Where an error was raised or passed on.
class ZYNET_API FXCodeLocation
{
public:
    // Records a place; `file` and `function` must be static text.
    FXCodeLocation(const char* file, const char* function, int line);

    // The library's source name, the qualified function name and the line.
    // @{
    const char* File() const { return m_file; }
    const char* Function() const { return m_function; }
    int Line() const { return m_line; }
    // @}

private:
    const char* m_file;      // static text: the library's source name
    const char* m_function;  // static text: the qualified function name
    int m_line;
};

// Builds the location of the current line. Each source file defines
// `kZyFile` (for example "ZyNetwork/ZySocket") before using it.
#define ZY_LOC(function) ::FXCodeLocation(kZyFile, function, __LINE__)

// How FXErrorItem::AsString writes an item.
enum EErrorOutputFormat
{
    ERROR_OUTPUT_SHORT = 0,  // "Function (File:Line): message"
    ERROR_OUTPUT_LONG = 1    // adds the kind and code
};

// The kind of an error, chosen by the FXErrorUtil constructor that raised it.
enum class EErrorKind
{
    None = 0,  // an item pushed by a caller: location and optional message
    Win32,
    ErrNo,
    Int,
    Http,
    RKResult,
    RkCURL  // the transfer classes' curl codes (ZyNetwork/RkCURLError.h)
};

// The kind's name as error texts show it: "Win32", "errno", "int", "HTTP",
// "transfer", "curl" (and "none").
ZYNET_API const char* ErrorKindName(EErrorKind kind);

// One entry of an error's stack: where, and for the raising item its kind,
// code and message.
class ZYNET_API FXErrorItem
{
public:
    // An item that only records a place (a caller passing the error on).
    explicit FXErrorItem(const FXCodeLocation& location);
    // The raising item: place, kind, code and message.
    FXErrorItem(const FXCodeLocation& location, EErrorKind kind, int32_t code, std::string message);
    virtual ~FXErrorItem();
    // The item as one line, short form by default (see EErrorOutputFormat).
    // @{
    virtual std::string AsString() const;
    virtual std::string AsString(EErrorOutputFormat format) const;
    // @}
    // Independent copy of this item (used by CZyError::Copy).
    virtual FXErrorItem* Clone() const;

    // Where, the kind, the code and the message ("" when none) of this item.
    // @{
    const FXCodeLocation& Location() const { return m_location; }
    EErrorKind Kind() const { return m_kind; }
    int32_t Code() const { return m_code; }
    const std::string& Message() const { return m_message; }
    // @}

protected:
    FXCodeLocation m_location;
    EErrorKind m_kind;
    int32_t m_code;
    std::string m_message;
};

typedef boost::shared_ptr<FXErrorItem> FXErrorItemPtr;

// An error value: empty for success, otherwise the code and the stack of
// items from the place that raised it outwards.
class ZYNET_API CZyError
{
public:
    // The no-error value.
    CZyError();
    // Same as the default constructor: the no-error value.
    static CZyError Success() { return CZyError(); }
    // An error with a code and the item that raised it. A null item (one
    // that could not be allocated) still makes an error, without items.
    CZyError(int32_t code, const FXErrorItemPtr& item);

    // True for an error, false for the no-error value.
    bool IsError() const { return m_error; }
    // The error's code (0 for the no-error value).
    int32_t GetErrorCode() const { return m_code; }
    // Whether this is (or is not) an error with this code.
    // @{
    bool Is(int32_t code) const { return IsError() && m_code == code; }
    bool IsNot(int32_t code) const { return !Is(code); }
    // @}
    // The kind of the innermost item (the one that raised the error).
    EErrorKind GetErrorKind() const;
    // The message given where the error was raised ("" when none).
    std::string GetErrorMessage() const;
    // The stack of items, innermost (the raising one) first.
    const std::vector<FXErrorItemPtr>& GetItems() const { return m_items; }
    // True when any item carries exactly this message.
    bool HasMessage(const std::string& message) const;

    // Passing on: each adds one item on top of the stack and returns *this.
    // A value with an item is an error.
    // @{
    CZyError& Push(const FXCodeLocation& location);
    CZyError& Push(const FXCodeLocation& location, const char* format, ...) ZY_PRINTF_LIKE(3, 4);
    CZyError& Push(const FXErrorItemPtr& item);
    // @}

    // Copies share items; Copy() makes independent ones.
    CZyError Copy() const;

    // One line per item, innermost first: code, kind, message and location.
    std::string AsString() const;

private:
    int32_t m_code;
    bool m_error;
    std::vector<FXErrorItemPtr> m_items;
};

namespace FXErrorUtil
{
// Raise a new error of one kind (Win32, ErrNo, Int, Http, RKResult) at
// `location` with `code` and an optional printf-style message; ErrorHttp
// writes "HTTP status N" as its message. The code becomes the error's code.
// @{
ZYNET_API CZyError ErrorWin32(const FXCodeLocation& location, uint32_t code);
ZYNET_API CZyError ErrorWin32(const FXCodeLocation& location, uint32_t code, const char* format, ...)
    ZY_PRINTF_LIKE(3, 4);
ZYNET_API CZyError ErrorErrNo(const FXCodeLocation& location, int code, const char* format, ...)
    ZY_PRINTF_LIKE(3, 4);
ZYNET_API CZyError ErrorInt(const FXCodeLocation& location, int code, const char* format, ...)
    ZY_PRINTF_LIKE(3, 4);
ZYNET_API CZyError ErrorHttp(const FXCodeLocation& location, int status);
ZYNET_API CZyError ErrorRKResult(const FXCodeLocation& location, int code, const char* format, ...)
    ZY_PRINTF_LIKE(3, 4);
// @}

// Whether `error` was raised as an HTTP error with this status (or not), or as
// an errno error with this code.
// @{
ZYNET_API bool IsHttp(const CZyError& error, int status);
ZYNET_API bool IsNotHttp(const CZyError& error, int status);
ZYNET_API bool IsErrNo(const CZyError& error, int code);
// @}
}  // namespace FXErrorUtil
