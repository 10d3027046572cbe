// quorvane-demo: `quorvane demo`, in a program of its own because it links the device libraries
// (libvips, ZXing-C++, FFmpeg's codecs and devices) that the upload path does without. `quorvane demo
// ...` runs it with the same arguments; run directly, the word "demo" may be left out
// (`quorvane-demo record`).
#include <cstring>
#include <vector>

#include "commands.h"

int main(int argc, char** argv) {
    std::vector<char*> args(argv, argv + argc);
    static char demoWord[] = "demo";
    if (argc > 1 && std::strcmp(argv[1], "demo") != 0 && argv[1][0] != '-') args.insert(args.begin() + 1, demoWord);
    CLI::App app{"QuorvaneApiSDK command-line host", "quorvane"};
    app.require_subcommand(1);
    auto demo = quorvane::app::addDemoCommand(app);
    try {
        app.parse(static_cast<int>(args.size()), args.data());
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;  // --help is 0; every usage error is 2
    }
    return demo.run();
}
