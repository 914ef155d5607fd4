// The toolkit's edits from the shell.

#include <clocale>
#include <csignal>
#include <cstdio>
#include <functional>
#include <string>

#include <CLI/CLI.hpp>

#include "MP4Container.h"

namespace {

std::wstring widened(const std::string& path) {
    std::wstring wide = Brisa::wchar::mbs2wcs(path);
    if (Brisa::wchar::wcs2mbs(wide).c_str() != path) {
        throw CLI::ValidationError(path, "a path that this locale cannot express");
    }
    return wide;
}

/// What the command line asks for; run() does it once the arguments are parsed.
class Command {
public:
    explicit Command(CLI::App& app_) : app(app_) { app.require_subcommand(1); }

    /// A subcommand on a file. `work` gets the attached container and tells whether it succeeded.
    CLI::App* add(const std::string& name, const std::string& description,
                  std::function<bool(MP4::Container&)> work) {
        CLI::App* const command = app.add_subcommand(name, description);
        command->add_option("FILE", file, "MP4 file")->required();
        command->callback([this, work] { chosen = work; });
        return command;
    }
    /// A subcommand that rewrites the file, or writes a new one.
    CLI::App* addRewrite(const std::string& name, const std::string& description,
                         std::function<bool(MP4::Container&)> work) {
        CLI::App* const command = add(name, description, std::move(work));
        command->add_option("-o,--output", output, "leave FILE as it is and write the result to this file");
        return command;
    }

    bool run() {
        const std::wstring outputPath = widened(output);
        MP4::Container container;
        container.keepContents = app.got_subcommand("dump");
        if (!container.attach(widened(file))) {
            return false;
        }
        container.outputPath = output.empty() ? nullptr : outputPath.c_str();
        return chosen(container);
    }

private:
    CLI::App& app;
    std::string file;
    std::string output;
    std::function<bool(MP4::Container&)> chosen;
};

} // namespace

int main(int argc, char** argv) {
    // Paths are in the user's encoding; numbers and messages stay as in the POSIX locale.
    std::setlocale(LC_CTYPE, "");
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);

    CLI::App app("Edits MP4 files. An edit succeeds wholly, or leaves the file as it was.");
    Command command(app);

    command.add("dump", "Print the box tree", [](MP4::Container& container) {
        container.dump();
        return true;
    });
    command.addRewrite(
        "moov-first", "Put moov ahead of mdat, so that playback can start early",
        [](MP4::Container& container) { return !container.isMdatFirst() || container.moovFirst(); });
    unsigned long long time = 0;
    command
        .add("set-time", "Set the creation time of the movie and all tracks",
             [&](MP4::Container& container) { return container.updateTimeStamp(time); })
        ->add_option("SECONDS", time, "seconds since 1904-01-01 UTC")
        ->required();

    CLI11_PARSE(app, argc, argv);
    try {
        return command.run() ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "pellmor-edit: %s\n", error.what());
        return 1;
    }
}
