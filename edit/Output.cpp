#include "Output.h"

#include <cerrno>
#include <filesystem>

#include "Brisa/BrisaFileIO.h"
#include "Input.h"

namespace edit {

using Brisa::FileIO;

Draft::Draft(const std::string& place_, bool mayReplace)
    : name(place_), place(widened(place_)), draft(place + L".part") {
    std::error_code missing;
    if (std::filesystem::exists(std::filesystem::symlink_status(name, missing)) && !mayReplace) {
        throw Failure(name + " is there already; --force replaces it", Status::refused);
    }
    if (!FileIO::isFree(place) || !FileIO::isFree(draft)) {
        throw Failure(name + ": no place for a new file");
    }
}

Draft::~Draft() {
    if (!inPlace) {
        FileIO::unlink(draft);
    }
}

void Draft::finish() {
    errno = 0;
    inPlace = FileIO::rename(draft, place);
    if (!inPlace) {
        throw Failure(name + ": could not be written: " + systemReason(errno));
    }
}

Status writeResult(Session& session, const std::function<bool(const Sink&)>& write) {
    const std::string& output = session.options.output;
    if (output.empty() || output == "-") {
        return write(Session::print) ? session.done("")
                                     : session.failed("could not be written to standard output");
    }
    return writeFile(session, [&](const std::wstring& path) {
        bool written = false;
        const auto sink = [&](FileIO& file) {
            written = write([&](std::string_view text) {
                return file.writeAll(text.data(), text.size()) == text.size();
            });
        };
        return FileIO::open_w(path, sink) && written;
    });
}

Status writeFile(Session& session, const std::function<bool(const std::wstring&)>& write) {
    const std::string& output = session.options.output;
    Draft draft(output, session.options.force);
    if (!write(draft.path())) {
        return session.failed(output + " could not be written");
    }
    draft.finish();
    return session.done("written to " + output);
}

} // namespace edit
