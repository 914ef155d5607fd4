// SPDX-License-Identifier: MIT
#include "Output.h"

#include <filesystem>

#include "Brisa/BrisaFileIO.h"
#include "Draft.h"

namespace edit {

using Brisa::FileIO;

namespace {

/// Whether something is there that takes bytes and cannot be renamed over: a device or a pipe.
bool isStream(const std::string& place) {
    std::error_code missing;
    const auto status = std::filesystem::status(place, missing);
    return std::filesystem::is_character_file(status) || std::filesystem::is_fifo(status);
}

} // namespace

void writeResult(Job& job, const std::function<bool(const Sink&)>& write) {
    const std::string& output = job.options.output;
    if (output.empty() || output == "-") {
        demand(write(Job::print), "could not be written to standard output");
        return job.done([] { return ""; });
    }
    writeFile(job, [&](const std::wstring& path) {
        bool written = false;
        const auto sink = [&](FileIO& file) {
            written = write([&](std::string_view text) {
                return file.writeAll(text.data(), text.size()) == text.size();
            });
        };
        return FileIO::open_w(path, sink) && written;
    });
}

void writeFile(Job& job, const std::function<bool(const std::wstring&)>& write) {
    const std::string& output = job.options.output;
    const std::string tried = output + ": could not be written";
    if (isStream(output)) {
        demand(write(Brisa::wchar::fromBytes(output)), tried);
    } else {
        Draft draft(output, job.options.force);
        demand(write(draft.path()), tried);
        draft.finish();
    }
    job.done([&] { return "written to " + output; });
}

} // namespace edit
