// quorvane-demo: `quorvane demo`, in a program of its own because it links the device libraries
// (libvips, ZXing-C++, FFmpeg's codecs and devices) that the upload path does without. `quorvane demo
// ...` runs it with the same arguments; run directly, the word "demo" may be left out
// (`quorvane-demo record`).
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "cli_docs.h"
#include "foundation/host_paths.h"
#include "commands.h"

int main(int argc, char** argv) {
    quorvane::foundation::useHostPaths(quorvane::foundation::hostPathsFrom(std::getenv));
    std::vector<char*> args(argv, argv + argc);
    static char demoWord[] = "demo";
    if (argc > 1 && std::strcmp(argv[1], "demo") != 0 && argv[1][0] != '-') args.insert(args.begin() + 1, demoWord);
    CLI::App app{"QuorvaneApiSDK command-line host", "quorvane"};
    app.require_subcommand(1);
    auto demo = quorvane::app::addDemoCommand(app);
    // Build time: `quorvane --generate` asks for the demo's part of its man page and completion.
    if (argc == 3 && std::strcmp(argv[1], "--generate") == 0) {
        if (std::strcmp(argv[2], "man-sections") == 0)
            std::fputs(quorvane::app::manSections(*demo.command, "quorvane demo").c_str(), stdout);
        else if (std::strcmp(argv[2], "completion-case") == 0)
            std::fputs(quorvane::app::completionCase(*demo.command).c_str(), stdout);
        else
            return 2;
        return 0;
    }
    try {
        app.parse(static_cast<int>(args.size()), args.data());
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;  // --help is 0; every usage error is 2
    }
    return demo.run();
}
