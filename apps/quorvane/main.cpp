// quorvane: runs the façade on Linux (demo today; uploads and the cloud emulator join as subcommands).
#include <vector>

#include "commands.h"
#include "upload_commands.h"

int main(int argc, char** argv) {
    CLI::App app{"QuorvaneApiSDK command-line host"};
    app.require_subcommand(1);
    std::vector<quorvane::app::Subcommand> subcommands{
        quorvane::app::addDemoCommand(app),
        quorvane::app::addUploadCommand(app),
        quorvane::app::addCloudCommand(app),
    };
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;  // --help is 0; every usage error is 2
    }
    for (const auto& subcommand : subcommands)
        if (subcommand.command->parsed()) return subcommand.run();
    return 1;
}
