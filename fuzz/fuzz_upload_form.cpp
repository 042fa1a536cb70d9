// The multipart log-upload form over arbitrary field values: the input is
// split at NUL bytes into client identifier, user, password and file name.
// The form must keep its frame whatever the values hold, and the Basic
// authorization value must decode to user:password.
#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "ZyNetwork/Internal/ZyHTTPText.h"
#include "ZyUtils/ZyString.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<std::string> fields(4);
    size_t field = 0;
    for (size_t i = 0; i < size && field < fields.size(); ++i)
    {
        if (data[i] == 0)
            ++field;
        else
            fields[field].push_back(static_cast<char>(data[i]));
    }
    for (int jsp = 0; jsp < 2; ++jsp)
    {
        zy::http::UploadFields values;
        values.jsp = jsp == 1;
        values.clientId = fields[0];
        values.user = fields[1];
        values.password = fields[2];
        values.fileName = fields[3];
        zy::http::UploadForm form = zy::http::BuildUploadForm(values);
        const std::string delimiter = std::string("--") + zy::http::kUploadBoundary + "\r\n";
        const std::string closing = std::string("--") + zy::http::kUploadBoundary + "--\r\n";
        if (form.head.compare(0, delimiter.size(), delimiter) != 0 || form.tail.size() < closing.size() ||
            form.tail.compare(form.tail.size() - closing.size(), closing.size(), closing) != 0)
            __builtin_trap();
    }
    std::string header = zy::http::BasicAuthorization(fields[1], fields[2]);
    std::string decoded;
    if (header.compare(0, 6, "Basic ") != 0 || !FXString::Base64Decode(header.substr(6), decoded) ||
        decoded != fields[1] + ":" + fields[2])
        __builtin_trap();
    return 0;
}
