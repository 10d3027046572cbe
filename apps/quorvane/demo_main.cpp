// quorvane-demo: `quorvane demo`, in a program of its own because it links the device libraries
// (libvips, ZXing-C++, FFmpeg's codecs) that the upload path does without. `quorvane demo ...` runs
// it with the same arguments.
#include "commands.h"

int main(int argc, char** argv) {
    CLI::App app{"QuorvaneApiSDK command-line host", "quorvane"};
    app.require_subcommand(1);
    auto demo = quorvane::app::addDemoCommand(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;  // --help is 0; every usage error is 2
    }
    return demo.run();
}
