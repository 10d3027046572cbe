#pragma once
// What the single-request operations share: checks of the target before anything is sent, and one
// exchange whose successful answer becomes the result. Not a public header.
#include <optional>
#include <string>

#include "oss/oss_client_impl.h"
#include "oss/oss_endpoint.h"

namespace quorvane::oss {

template <class T>
OSSOutcome<T> invalidRequest(const std::string& message) {
    return OSSOutcome<T>::failure(makeClientError(OSSClientErrorCodeInvalidArgument, message));
}

template <class T>
std::optional<OSSOutcome<T>> checkBucket(const std::string& bucket) {
    if (bucket.empty()) return invalidRequest<T>("The bucket name is empty");
    if (!isValidBucketName(bucket))
        return invalidRequest<T>("The bucket name \"" + bucket + "\" is not valid: 3 to 63 lower-case letters, digits "
                                 "and hyphens, starting and ending with a letter or digit");
    return std::nullopt;
}

template <class T>
std::optional<OSSOutcome<T>> checkTarget(const std::string& bucket, const std::string& key) {
    if (auto bad = checkBucket<T>(bucket)) return bad;
    if (key.empty()) return invalidRequest<T>("The object key is empty");
    return std::nullopt;
}

// Sends `call` and hands a successful answer to `read`, which makes the result; errors pass through.
template <class T, class Read>
void exchange(const OSSOperationContext& context, OSSHttpCall call, OSSDone<T> done, Read read) {
    context.client->execute(context, std::move(call),
                            [done = std::move(done), read = std::move(read)](OSSOutcome<foundation::HttpResponse> answer) {
                                if (answer.error) return done(OSSOutcome<T>::failure(std::move(*answer.error)));
                                done(read(*answer.result));
                            });
}

}  // namespace quorvane::oss
