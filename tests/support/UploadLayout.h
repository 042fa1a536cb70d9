// The log-upload form as the receiving service reads it, spelled out part by
// part, for comparing what the client builds or sends.
#pragma once

#include <string>

namespace zytest
{
inline std::string ExpectedUploadBody(bool sixParts, const std::string& ccid, const std::string& user,
                                      const std::string& password, const std::string& fileName,
                                      const std::string& fileBytes)
{
    const std::string delimiter = "----HTTP-LOGUPLOAD-DEFAULT-BOUNDARY--\r\n";
    auto valuePart = [&](const std::string& name, const std::string& value) {
        return delimiter + "Content-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value + "\r\n";
    };
    std::string body = valuePart("mode", "go") + valuePart("ccid", ccid);
    if (sixParts)
        body += valuePart("username", user) + valuePart("password", password);
    body += delimiter + "Content-Disposition: form-data; name=\"logfile\"; filename=" + fileName + "\r\n" +
            "Content-Type: application/octet-stream\r\n\r\n";
    body += fileBytes;
    body += "\r\n" + valuePart("submit", "Upload");
    body += "----HTTP-LOGUPLOAD-DEFAULT-BOUNDARY----\r\n";
    return body;
}
}  // namespace zytest
