#pragma once
// `quorvane upload - oss://BUCKET/KEY`: standard input, of a size nobody knows beforehand, streamed as a
// multipart upload one part at a time (only that part is in memory), checked by the CRC-64 of all its
// bytes against the stored object's. Input that fits in one part goes as one PutObject. Standard input
// cannot be read twice, so an interrupted or failed run aborts its upload instead of keeping it.
#include <cstdint>
#include <string>

#include "object_store.h"
#include "upload_progress_view.h"

namespace quorvane::app {

// The process exit status (0, 1 or 130).
int uploadStandardInput(const StoreAccess& access, const std::string& key, std::int64_t partSize, int fd,
                        UploadProgressView& view);

}  // namespace quorvane::app
