// Throughput and peak memory of one resumable upload through the object-storage client.
// Usage: oss_upload_bench ENDPOINT BUCKET KEY_ID SECRET FILE [PART_SIZE] [PARTS_IN_FLIGHT]
// PARTS_IN_FLIGHT 0 sends the file as one PutObject instead (the client's cost next to curl's alone).
// Prints "seconds=<s> mib_per_s=<r> peak_rss_mib=<m> parts_in_flight=<n>".
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <sys/resource.h>

#include "oss/oss_client.h"

using namespace quorvane::oss;

int main(int argc, char** argv) {
    if (argc < 6) {
        std::fprintf(stderr, "usage: %s ENDPOINT BUCKET KEY_ID SECRET FILE [PART_SIZE] [PARTS_IN_FLIGHT]\n", argv[0]);
        return 2;
    }
    OSSClientConfiguration conf;
    if (argc > 7) conf.maxConcurrentParts = std::atoi(argv[7]);
    OSSClient client(argv[1], std::make_shared<OSSPlainTextAKSKPairCredentialProvider>(argv[3], argv[4]), conf);
    auto request = std::make_shared<OSSResumableUploadRequest>();
    request->bucketName = argv[2];
    request->objectKey = "bench-oss-client.bin";
    request->uploadingFileURL = argv[5];
    request->partSize = argc > 6 ? std::atoll(argv[6]) : 1024 * 1024;
    std::int64_t total = 0;
    request->uploadProgress = [&](std::int64_t, std::int64_t, std::int64_t expected) { total = expected; };
    auto put = std::make_shared<OSSPutObjectRequest>();
    put->bucketName = request->bucketName;
    put->objectKey = "bench-oss-client-put.bin";
    put->uploadingFileURL = request->uploadingFileURL;
    put->uploadProgress = request->uploadProgress;
    bool single = argc > 7 && std::atoi(argv[7]) == 0;
    auto start = std::chrono::steady_clock::now();
    std::optional<quorvane::Error> failure;
    if (single) {
        auto task = client.putObject(put);
        task->waitUntilFinished();
        failure = task->error();
    } else {
        auto task = client.resumableUpload(request);
        task->waitUntilFinished();
        failure = task->error();
    }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (failure) {
        std::fprintf(stderr, "upload failed: %s\n", failure->toString().c_str());
        return 1;
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("seconds=%.3f mib_per_s=%.1f peak_rss_mib=%.1f parts_in_flight=%d\n", seconds,
                static_cast<double>(total) / (1024.0 * 1024.0) / seconds, usage.ru_maxrss / 1024.0,
                single ? 0 : client.clientConfiguration().maxConcurrentParts);
    return 0;
}
