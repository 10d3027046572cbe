// Host-given upload URLs: a multipart form POST with one file part and ordinary fields.
#include "emulator/emulator_impl.h"

namespace quorvane::emulator {

void serveHostUpload(Exchange& ex) {
    ex.record.service = "host";
    ex.record.operation = "HostUpload";
    auto answer = [&](int status, const Value& body) {
        ex.res.status = status;
        ex.res.set_content(body.dump(), "application/json;charset=utf-8");
    };
    auto injected = [&](const Fault& f) {
        ex.record.errorCode = f.code;
        answer(f.status, {{"code", f.code}, {"msg", f.message}, {"message", f.message}});
    };
    if (ex.applyFault(ex.record.operation, injected)) return;
    if (ex.req.method != "POST" || !ex.req.is_multipart_form_data()) {
        ex.record.errorCode = "400";
        return answer(400, {{"code", 400}, {"msg", "multipart/form-data expected"}, {"message", "multipart/form-data expected"}});
    }
    HostUpload upload;
    upload.path = ex.req.path;
    upload.fields = Value::object();
    upload.headers = ex.headers();
    std::vector<httplib::MultipartFormData> parts;
    bool whole = ex.readMultipart(
        [&](const httplib::MultipartFormData& header) {
            parts.push_back(header);
            return true;
        },
        [&](const char* data, std::size_t size) {
            parts.back().content.append(data, size);
            return true;
        });
    for (const auto& part : parts) {
        if (!part.filename.empty() && upload.fileField.empty()) {
            upload.fileField = part.name;
            upload.fileName = part.filename;
            upload.fileContentType = part.content_type;
            upload.fileBytes = part.content;
        } else {
            upload.fields[part.name] = part.content;
        }
    }
    if (!whole) {
        ex.record.errorCode = "400";
        return answer(400, {{"code", 400}, {"msg", "malformed form"}, {"message", "malformed form"}});
    }
    Value data = {{"name", upload.fileName}, {"size", upload.fileBytes.size()},
                  {"url", ex.impl.endpoint() + upload.path + "/" + upload.fileName}};
    {
        std::lock_guard lock(ex.impl.mutex);
        ex.impl.hostUploads.push_back(std::move(upload));
    }
    answer(200, {{"code", 0}, {"msg", "success"}, {"message", "success"}, {"data", data}});
}

}  // namespace quorvane::emulator
