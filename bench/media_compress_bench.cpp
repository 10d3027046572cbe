// Peak resident memory of compressing a 40-megapixel photo as the camera path does: decode with
// the orientation applied, scale to the screen's width, JPEG at 0.8, save under "media".
//   media_compress_bench generate <file>   writes a 7744 × 5164 JPEG (streamed, not held)
//   media_compress_bench compress <file>   compresses it and prints the peak RSS of this process
// Run each step in its own process so the figure is the compression's alone.
// Bound: the compression stays under 128 MiB peak RSS, the encoded input bytes included (the
// JPEG is shrunk while it is decoded; full-size pixels, 120 MB as RGB, never exist at once).
#include <sys/resource.h>

#include <vips/vips8>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "api/media/CaptureSupport.h"
#include "api/media/ImageCodec.h"
#include "foundation/host_paths.h"
#include "foundation/temp_files.h"

using namespace quorvane;

namespace {

int generate(const char* path) {
    if (VIPS_INIT("media_compress_bench")) return 1;
    const int width = 7744, height = 5164;  // 40 megapixels
    // A smooth pattern with mild grain compresses like a photo, not like pure noise.
    auto zone = vips::VImage::zone(width, height).linear(110, 128);
    auto grain = vips::VImage::gaussnoise(width, height, vips::VImage::option()->set("sigma", 6)).linear(1, -128);
    auto base = zone + grain;
    auto rgb = base.bandjoin({base.linear(0.8, 20), base.linear(0.6, 40)}).cast(VIPS_FORMAT_UCHAR);
    rgb = rgb.copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
    rgb.jpegsave(path, vips::VImage::option()->set("Q", 90));
    return 0;
}

long peakRssKiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

int compress(const char* path) {
    auto bytes = foundation::readFile(path);
    if (!bytes) return 1;
    auto start = std::chrono::steady_clock::now();
    auto result = media::saveScreenWideJpeg(media::decodeImage(*bytes), 0.8, false);
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!result) return 1;
    std::printf("input %.1f MB, output %s (%lld KB, %gx%g), %.2f s, peak RSS %ld KiB\n", bytes->size() / 1e6,
                (*result)["path"].get<std::string>().c_str(), (*result)["size"].get<long long>(),
                (*result)["width"].get<double>(), (*result)["height"].get<double>(), seconds, peakRssKiB());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    quorvane::foundation::useHostPaths(quorvane::foundation::hostPathsFrom(std::getenv));
    if (argc == 3 && std::strcmp(argv[1], "generate") == 0) return generate(argv[2]);
    if (argc == 3 && std::strcmp(argv[1], "compress") == 0) return compress(argv[2]);
    std::fprintf(stderr, "usage: %s generate|compress <file>\n", argv[0]);
    return 2;
}
