#include "ZyUtils/ZyError.h"

#include <new>

#include "ZyUtils/ZyString.h"

FXCodeLocation::FXCodeLocation(const char* file, const char* function, int line)
    : m_file(file ? file : ""), m_function(function ? function : ""), m_line(line)
{
}

const char* ErrorKindName(EErrorKind kind)
{
    switch (kind)
    {
    case EErrorKind::Win32:
        return "Win32";
    case EErrorKind::ErrNo:
        return "errno";
    case EErrorKind::Int:
        return "int";
    case EErrorKind::Http:
        return "HTTP";
    case EErrorKind::RKResult:
        return "transfer";
    case EErrorKind::RkCURL:
        return "curl";
    case EErrorKind::None:
        break;
    }
    return "";
}

FXErrorItem::FXErrorItem(const FXCodeLocation& location)
    : m_location(location), m_kind(EErrorKind::None), m_code(0)
{
}

FXErrorItem::FXErrorItem(const FXCodeLocation& location, EErrorKind kind, int32_t code, std::string message)
    : m_location(location), m_kind(kind), m_code(code), m_message(std::move(message))
{
}

FXErrorItem::~FXErrorItem() = default;

std::string FXErrorItem::AsString() const
{
    return AsString(ERROR_OUTPUT_LONG);
}

std::string FXErrorItem::AsString(EErrorOutputFormat format) const
{
    std::string text;
    if (format == ERROR_OUTPUT_LONG && m_kind != EErrorKind::None)
        text = FXString::Format("%s error %d", ErrorKindName(m_kind), m_code);
    else
        text = "passed on";
    if (!m_message.empty())
        text += ": \"" + m_message + "\"";
    text += FXString::Format(" at %s (%s:%d)", m_location.Function(), m_location.File(), m_location.Line());
    return text;
}

FXErrorItem* FXErrorItem::Clone() const
{
    return new FXErrorItem(*this);
}

CZyError::CZyError() : m_code(0), m_error(false) {}

CZyError::CZyError(int32_t code, const FXErrorItemPtr& item) : m_code(code), m_error(true)
{
    // Out of memory, the error is kept without its item rather than lost.
    if (item)
    {
        try
        {
            m_items.push_back(item);
        }
        catch (const std::bad_alloc&)
        {
        }
    }
}

EErrorKind CZyError::GetErrorKind() const
{
    return m_items.empty() ? EErrorKind::None : m_items.front()->Kind();
}

std::string CZyError::GetErrorMessage() const
{
    return m_items.empty() ? std::string() : m_items.front()->Message();
}

bool CZyError::HasMessage(const std::string& message) const
{
    for (const FXErrorItemPtr& item : m_items)
        if (item->Message() == message)
            return true;
    return false;
}

CZyError& CZyError::Push(const FXCodeLocation& location)
{
    m_items.push_back(FXErrorItemPtr(new FXErrorItem(location)));
    m_error = true;
    return *this;
}

CZyError& CZyError::Push(const FXCodeLocation& location, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string message = FXString::FormatArgList(format, args);
    va_end(args);
    m_items.push_back(FXErrorItemPtr(new FXErrorItem(location, EErrorKind::None, 0, std::move(message))));
    m_error = true;
    return *this;
}

CZyError& CZyError::Push(const FXErrorItemPtr& item)
{
    if (item)
    {
        m_items.push_back(item);
        m_error = true;
    }
    return *this;
}

CZyError CZyError::Copy() const
{
    CZyError copy;
    copy.m_code = m_code;
    copy.m_error = m_error;
    for (const FXErrorItemPtr& item : m_items)
        copy.m_items.push_back(FXErrorItemPtr(item->Clone()));
    return copy;
}

std::string CZyError::AsString() const
{
    if (!m_error)
        return "Success";
    if (m_items.empty())
        return FXString::Format("#0 error %d (no details: out of memory)", static_cast<int>(m_code));
    std::string text;
    for (size_t i = 0; i < m_items.size(); ++i)
    {
        if (i)
            text += '\n';
        text += FXString::Format("#%u ", static_cast<unsigned>(i));
        text += m_items[i]->AsString(ERROR_OUTPUT_LONG);
    }
    return text;
}

namespace
{
CZyError Raise(const FXCodeLocation& location, EErrorKind kind, int32_t code, std::string message)
{
    return CZyError(code, FXErrorItemPtr(new FXErrorItem(location, kind, code, std::move(message))));
}
}  // namespace

namespace FXErrorUtil
{
CZyError ErrorWin32(const FXCodeLocation& location, uint32_t code)
{
    return Raise(location, EErrorKind::Win32, static_cast<int32_t>(code), std::string());
}

CZyError ErrorWin32(const FXCodeLocation& location, uint32_t code, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string message = FXString::FormatArgList(format, args);
    va_end(args);
    return Raise(location, EErrorKind::Win32, static_cast<int32_t>(code), std::move(message));
}

CZyError ErrorErrNo(const FXCodeLocation& location, int code, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string message = FXString::FormatArgList(format, args);
    va_end(args);
    return Raise(location, EErrorKind::ErrNo, code, std::move(message));
}

CZyError ErrorInt(const FXCodeLocation& location, int code, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string message = FXString::FormatArgList(format, args);
    va_end(args);
    return Raise(location, EErrorKind::Int, code, std::move(message));
}

CZyError ErrorHttp(const FXCodeLocation& location, int status)
{
    return Raise(location, EErrorKind::Http, status, FXString::Format("HTTP status %d", status));
}

CZyError ErrorRKResult(const FXCodeLocation& location, int code, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string message = FXString::FormatArgList(format, args);
    va_end(args);
    return Raise(location, EErrorKind::RKResult, code, std::move(message));
}

bool IsHttp(const CZyError& error, int status)
{
    return error.IsError() && error.GetErrorKind() == EErrorKind::Http && error.GetErrorCode() == status;
}

bool IsNotHttp(const CZyError& error, int status)
{
    return !IsHttp(error, status);
}

bool IsErrNo(const CZyError& error, int code)
{
    return error.IsError() && error.GetErrorKind() == EErrorKind::ErrNo && error.GetErrorCode() == code;
}
}  // namespace FXErrorUtil
