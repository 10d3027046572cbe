#include "VODUpload/src/VODCreateUploadParams.h"

#include <algorithm>
#include <cctype>

#include "VODUpload/src/VODInnerFileInfo.h"

namespace quorvane {
namespace {

void putIfPresent(Value& params, const char* key, const std::optional<std::string>& value) {
    if (value) params[key] = *value;
}

bool nonEmpty(const std::optional<std::string>& text) { return text && !text->empty(); }

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

}  // namespace

Value createUploadVideoParams(const VODCreateUploadFields& f) {
    Value params = Value::object();
    putIfPresent(params, "CoverURL", f.coverUrl);
    params["FileSize"] = f.fileSize;
    putIfPresent(params, "Description", f.description);
    if (f.cateId) params["CateId"] = std::to_string(*f.cateId);
    putIfPresent(params, "Tags", f.tags);
    putIfPresent(params, "StorageLocation", f.storageLocation);
    putIfPresent(params, "TemplateGroupId", f.templateGroupId);
    const bool hasTemplateGroup = f.emptyTemplateGroupIsNone ? nonEmpty(f.templateGroupId) : f.templateGroupId.has_value();
    if (!f.transcode && !hasTemplateGroup) params["TranscodeMode"] = "NoTranscode";
    if (nonEmpty(f.appId)) params["AppId"] = *f.appId;
    if (nonEmpty(f.workflowId)) params["WorkflowId"] = *f.workflowId;
    putIfPresent(params, "UserData", f.userData);
    return params;
}

Value createUploadImageParams(const VODCreateImageFields& f) {
    Value params = Value::object();
    params["ImageExt"] = lowerCase(vodPathExtension(f.imagePath));
    putIfPresent(params, "Title", f.title);
    putIfPresent(params, "Description", f.description);
    if (f.cateId) params["CateId"] = std::to_string(*f.cateId);
    putIfPresent(params, "Tags", f.tags);
    putIfPresent(params, "StorageLocation", f.storageLocation);
    if (nonEmpty(f.appId)) params["AppId"] = *f.appId;
    putIfPresent(params, "UserData", f.userData);
    return params;
}

}  // namespace quorvane
