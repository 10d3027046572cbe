// Object storage: multipart uploads (initiate, parts, list, complete, abort).
#include <algorithm>
#include <charconv>

#include "emulator/oss_service.h"
#include "emulator/oss_xml.h"
#include "foundation/crc64.h"

namespace quorvane::emulator {
namespace {

constexpr std::uint64_t kMinPartSize = 100 * 1024;

void xmlOk(Exchange& ex, const std::string& body) {
    ex.res.status = 200;
    ex.res.set_content(body, "application/xml");
}

std::optional<int> parseInt(const std::string& text) {
    int value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

// The storage directory refused a write (a full disk): nothing was stored, the client may try again.
void internalError(OssRequest& r) {
    ossError(r.ex, r.bucket, 500, "InternalError", "We encountered an internal error. Please try again.");
}

void invalidArgument(OssRequest& r, const std::string& message, const std::string& name, const std::string& value) {
    ossError(r.ex, r.bucket, 400, "InvalidArgument", message, {{"ArgumentName", name}, {"ArgumentValue", value}});
}

// The open upload named by ?uploadId for this bucket and key; answers NoSuchUpload otherwise.
std::optional<StoredUpload> openUpload(OssRequest& r) {
    auto id = r.ex.param("uploadId").value_or("");
    auto upload = r.ex.impl.storage.upload(id);
    if (upload && upload->info.state == UploadState::Open && upload->info.bucket == r.bucket &&
        upload->info.key == r.key)
        return upload;
    ossError(r.ex, r.bucket, 404, "NoSuchUpload",
             "The specified upload does not exist. The upload ID may be invalid, or the upload may have been "
             "aborted or completed.",
             {{"UploadId", id}});
    return std::nullopt;
}

Value decodeNotification(const std::string& raw) {
    auto decoded = foundation::base64Decode(trim(raw));
    if (decoded)
        if (auto json = foundation::parseJson(*decoded)) return *json;
    if (auto json = foundation::parseJson(raw)) return *json;  // some clients send the JSON itself
    return nullptr;
}

// Checks the client's part list against the stored parts; answers the error and returns false on a mismatch.
bool checkPartList(OssRequest& r, const std::vector<CompletePart>& list, const StoredUpload& upload) {
    std::map<int, const PartInfo*> stored;
    for (const auto& p : upload.info.parts) stored[p.number] = &p;
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (i > 0 && list[i].number <= list[i - 1].number) {
            ossError(r.ex, r.bucket, 400, "InvalidPartOrder",
                     "The list of parts was not in ascending order. The parts list must be specified in order by "
                     "part number.");
            return false;
        }
        auto it = stored.find(list[i].number);
        auto storedEtag = it == stored.end() ? "" : it->second->etag.substr(1, it->second->etag.size() - 2);
        if (it == stored.end() || !iequals(storedEtag, list[i].etag)) {
            ossError(r.ex, r.bucket, 400, "InvalidPart",
                     "One or more of the specified parts could not be found or the specified entity tag might not "
                     "have matched the part's entity tag.",
                     {{"PartNumber", std::to_string(list[i].number)}, {"ETag", list[i].etag}});
            return false;
        }
        if (i + 1 < list.size() && it->second->size < kMinPartSize) {
            ossError(r.ex, r.bucket, 400, "EntityTooSmall", "Your proposed upload is smaller than the minimum allowed size.",
                     {{"MinSizeAllowed", std::to_string(kMinPartSize)},
                      {"ProposedSize", std::to_string(it->second->size)},
                      {"PartNumber", std::to_string(list[i].number)}});
            return false;
        }
    }
    return true;
}

}  // namespace

void initiateMultipartUpload(OssRequest& r) {
    auto& ex = r.ex;
    auto type = ex.header("Content-Type").value_or("application/octet-stream");
    auto id = ex.impl.storage.createUpload(r.bucket, r.key, type, metaHeaders(ex), ossTime(ex.impl.now()));
    if (!id) return internalError(r);
    xmlOk(ex, initiateResultXml(r.bucket, r.key, *id));
}

void uploadPart(OssRequest& r) {
    auto& ex = r.ex;
    auto numberText = ex.param("partNumber").value_or("");
    auto number = parseInt(numberText);
    if (!number || *number < 1 || *number > 10000)
        return invalidArgument(r, "Part number must be an integer between 1 and 10000, inclusive.", "partNumber",
                               numberText);
    if (!openUpload(r)) return;
    auto body = receiveBody(r);
    if (!body) return;
    PartInfo part{*number, body->size(), foundation::hexLower(body->md5Raw()), quotedEtag(body->md5Raw()),
                  body->crc(), ossTime(ex.impl.now())};
    auto etag = part.etag;
    auto crc = part.crc64;
    switch (ex.impl.storage.storePart(ex.param("uploadId").value_or(""), std::move(part), *body)) {
        case Stored::Ok: break;
        case Stored::NotOpen: openUpload(r); return;  // completed or aborted meanwhile
        case Stored::Failed: return internalError(r);
    }
    ex.res.status = 200;
    ex.res.set_header("ETag", etag);
    setCrcHeader(ex, crc);
}

void listParts(OssRequest& r) {
    auto& ex = r.ex;
    int maxParts = 1000;
    int marker = 0;
    if (auto text = ex.param("max-parts")) {
        auto v = parseInt(*text);
        if (!v || *v < 0) return invalidArgument(r, "Argument max-parts is not valid.", "max-parts", *text);
        maxParts = std::min(*v, 1000);
    }
    if (auto text = ex.param("part-number-marker")) {
        auto v = parseInt(*text);
        if (!v || *v < 0) return invalidArgument(r, "Argument part-number-marker is not valid.", "part-number-marker", *text);
        marker = *v;
    }
    auto upload = openUpload(r);
    if (!upload) return;
    ListPartsPage page{r.bucket, r.key, upload->info.uploadId, marker, 0, maxParts, false, {}};
    page.withCrc64 = r.ex.impl.options.listPartCrc64;
    for (const auto& p : upload->info.parts) {
        if (p.number <= marker) continue;
        if (static_cast<int>(page.parts.size()) == maxParts) {
            page.truncated = true;
            break;
        }
        page.parts.push_back(p);
    }
    page.nextMarker = page.parts.empty() ? marker : page.parts.back().number;
    if (ex.corruptCrc)
        for (auto& p : page.parts) p.crc64 ^= 0x5A5A5A5A5A5A5A5AULL;
    xmlOk(ex, listPartsXml(page));
}

void completeMultipartUpload(OssRequest& r) {
    auto& ex = r.ex;
    auto upload = openUpload(r);
    if (!upload) return;
    auto body = ex.readBodyText(8 << 20);
    auto list = body ? parseCompleteBody(*body) : std::nullopt;
    if (!list)
        return ossError(ex, r.bucket, 400, "MalformedXML",
                        "The XML you provided was not well-formed or did not validate against our published schema.");
    if (!checkPartList(r, *list, *upload) || refusesOverwrite(r)) return;

    foundation::Md5Stream etagDigest;
    ObjectInfo info{r.bucket, r.key, 0, "", 0, upload->info.contentType, upload->metadata, ex.header("x-oss-notification"),
                    nullptr, ossTime(ex.impl.now()), static_cast<int>(list->size()), "default", {}};
    std::vector<int> numbers;
    for (const auto& item : *list) {
        const auto& part = *std::find_if(upload->info.parts.begin(), upload->info.parts.end(),
                                         [&](const PartInfo& p) { return p.number == item.number; });
        numbers.push_back(item.number);
        auto md5Raw = hexToBytes(part.md5Hex);
        etagDigest.update(md5Raw.data(), md5Raw.size());
        info.crc64 = foundation::Crc64::combine(info.crc64, part.crc64, part.size);
        info.size += part.size;
    }
    info.etag = "\"" + foundation::hexUpper(etagDigest.finishRaw()) + "-" + std::to_string(list->size()) + "\"";
    if (info.notificationRaw) info.notification = decodeNotification(*info.notificationRaw);
    auto etag = info.etag;
    auto crc = info.crc64;
    switch (ex.impl.storage.completeUpload(upload->info.uploadId, std::move(info), numbers)) {
        case Stored::Ok: break;
        case Stored::NotOpen: openUpload(r); return;
        case Stored::Failed: return internalError(r);
    }
    auto location = "http://" + r.bucket + "." + ex.impl.hostPort() + "/" + r.key;
    ex.res.set_header("ETag", etag);
    setCrcHeader(ex, crc);
    xmlOk(ex, completeResultXml(location, r.bucket, r.key, etag));
}

void abortMultipartUpload(OssRequest& r) {
    if (!openUpload(r)) return;
    if (!r.ex.impl.storage.abortUpload(r.ex.param("uploadId").value_or(""))) {
        openUpload(r);
        return;
    }
    r.ex.res.status = 204;
}

}  // namespace quorvane::emulator
