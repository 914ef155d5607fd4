// SPDX-License-Identifier: MIT
// What a recording carries beside sound and pictures, kind by kind: got, put and removed.

#include <algorithm>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "Boxes.h"
#include "ByteOrder.h"
#include "Commands.h"
#include "Content.h"
#include "Output.h"
#include "SideFile.h"

namespace edit {

namespace {

using MP4::Container;

/// Whether boxes fill a stretch, but for zeros such as those that QuickTime closes user data with.
bool areBoxes(std::string_view bytes) {
    while (bytes.size() >= MP4::BOX::compactHeader) {
        const auto size = MP4::loadBigEndian<uint32_t>(bytes.data());
        if (size < MP4::BOX::compactHeader || size > bytes.size()) {
            break;
        }
        bytes.remove_prefix(size);
    }
    return bytes.find_first_not_of('\0') == std::string_view::npos;
}

void demandUserData(const std::string& content, const std::string& path) {
    const bool whole = content.size() >= MP4::BOX::compactHeader && content.substr(4, 4) == "udta" &&
                       MP4::loadBigEndian<uint32_t>(content.data()) == content.size();
    if (!whole) {
        throw WrongArguments(path + ": not one whole box of type udta");
    }
    if (!areBoxes(std::string_view(content).substr(MP4::BOX::compactHeader))) {
        throw WrongArguments(path + ": the boxes in it do not fill it");
    }
}

ByteArray bytes(const std::string& content) {
    ByteArray array;
    array.assign(content.data(), content.size());
    return array;
}

const Kind& sound() {
    return kindNamed("sound");
}

/// The names of the kinds that files hold as they are put into a recording.
std::vector<std::string> kindNames() {
    std::vector<std::string> names;
    for (const Kind& kind : kinds()) {
        if (&kind != &sound()) {
            names.emplace_back(kind.name);
        }
    }
    return names;
}

void kindArgument(CLI::App& app, Options& options) {
    app.add_option("KIND", options.value)->required()->check(CLI::IsMember(kindNames()));
}

} // namespace

std::vector<MP4::BOX*> boxesOf(const Container& container, const Kind& kind) {
    std::vector<MP4::BOX*> found;
    findIn(container, kind.path, [&](MP4::BOX& box) {
        const auto* const identified = MP4::as<MP4::UUID>(box);
        const bool right = kind.isWholeBox() || (identified != nullptr && identified->is(kind.identity));
        if (right && box.endWithin(container.root->boxSize) == box.end()) {
            found.push_back(&box);
        }
        return true;
    });
    return found;
}

MP4::BOX* boxOf(const Container& container, const Kind& kind) {
    const std::vector<MP4::BOX*> all = boxesOf(container, kind);
    return all.empty() ? nullptr : all.front();
}

bool holds(const Container& container, const Kind& kind, const MP4::BOX& box, const std::string& content) {
    const uint64_t prefix = kind.isWholeBox() ? 0 : box.headerSize() + kind.identity.size();
    return box.boxSize == prefix + content.size() && matches(container, box.offset + prefix, content);
}

void demandRoom(const Container& container, const Kind& kind) {
    const bool inTrack = !kind.isTopLevel() && !kind.isWholeBox();
    const char* const lacking = kind.isTopLevel()                      ? nullptr
                                : container.moov == nullptr            ? "has no movie (moov)"
                                : inTrack && container.trak == nullptr ? "has no video track"
                                : inTrack && container.mdat == nullptr ? "has no media data (mdat)"
                                                                       : nullptr;
    if (lacking != nullptr) {
        throw Failure(lacking);
    }
}

Failure anotherIsThere(const std::string& what) {
    return Failure("another " + what + " is there; --replace puts this one in its place", Status::refused);
}

bool putInto(Container& container, const Kind& kind, const std::string& content) {
    if (kind.isWholeBox()) {
        return container.replaceUdta(0, bytes(content));
    }
    if (!kind.isTopLevel()) {
        return container.appendSphericalVideoXML(content);
    }
    const auto size = static_cast<uint32_t>(MP4::UUID::prefixSize + content.size());
    const auto prefix = MP4::UUID::prefix(size, kind.identity);
    // The identity is content to whoever commits the box: only its type tells that it is one.
    ByteArray header;
    header.assign(prefix.data(), MP4::BOX::compactHeader);
    const auto write = [&](Brisa::FileIO& file) {
        const uint64_t identity = prefix.size() - header.size();
        return file.writeAll(prefix.data() + header.size(), identity) == identity &&
               file.writeAll(content.data(), content.size()) == content.size();
    };
    MP4::BOX* const existing = boxOf(container, kind);
    return existing != nullptr ? container.replaceBox(*existing, header, write)
                               : container.append(header, write);
}

void getArguments(CLI::App& app, Options& options) {
    kindArgument(app, options);
    fileArgument(app, options);
    outputOption(app, options, "where it goes; without it, or with -, to standard output");
}

Work get(const Options& options) {
    demandOther(options.files.front(), options.output);
    return {[&kind = kindNamed(options.value)](Job& job) {
        const Container& container = attached(job);
        const MP4::BOX* const box = boxOf(container, kind);
        if (box == nullptr) {
            throw Failure(std::string("has no ") + kind.name, Status::notThere);
        }
        const std::string content = kind.isWholeBox() ? wholeBox(container, *box) : bodyOf(container, *box);
        writeResult(job, [&](const Sink& sink) { return sink(content); });
    }};
}

void putArguments(CLI::App& app, Options& options) {
    kindArgument(app, options);
    app.add_option("INPUT", options.input, "file with the content; - is the standard input")->required();
    app.add_flag("--replace", options.replace, "replace other content that is there");
}

Work put(const Options& options) {
    const Kind& kind = kindNamed(options.value);
    for (const std::string& file : options.files) {
        demandOther(options.input, file);
    }
    std::string content = contentOf(options.input);
    if (content.empty() || content.size() > UINT32_MAX - MP4::UUID::prefixSize) {
        throw WrongArguments(options.input + ": " +
                             (content.empty() ? "empty" : "too long for a box with a 32-bit size"));
    }
    if (kind.xml) {
        demandXml(content, options.input);
    }
    if (kind.isWholeBox()) {
        demandUserData(content, options.input);
    }
    return {[&kind, content = std::move(content)](Job& job) {
                demandRoom(job.container, kind);
                const MP4::BOX* const existing = boxOf(job.container, kind);
                const std::string name = kind.name;
                if (existing != nullptr && holds(job.container, kind, *existing, content)) {
                    return job.nothingToDo("this " + name + " is there");
                }
                if (existing != nullptr && !job.options.replace) {
                    throw anotherIsThere(name);
                }
                const std::string tried = "the " + name + " could not be put in";
                demand(putInto(job.container, kind, content), tried);
                job.done([&] { return name + " put in (" + byteCount(content.size()) + ")"; });
            },
            kind.isTopLevel() ? Result::sameFile : Result::newFile};
}

void removeArguments(CLI::App& app, Options& options) {
    std::vector<std::string> names = kindNames();
    names.insert(names.end(), {"location", sound().name});
    app.add_option("KIND", options.value)->required()->check(CLI::IsMember(names));
}

Work remove(const Options& options) {
    if (options.value == "location") {
        return removeLocation(options);
    }
    const Kind& kind = kindNamed(options.value);
    return {[&kind](Job& job) {
                std::vector<MP4::BOX*> all = boxesOf(job.container, kind);
                const std::string name = kind.name;
                if (all.empty()) {
                    throw Failure("has no " + name, Status::notThere);
                }
                const std::string tried = "the " + name + " could not be removed";
                const uint64_t size = all.front()->boxSize;
                // From the last to the first: until that goes, it is the one that counts.
                for (size_t left = all.size(); left > 0; --left) {
                    demand(!all.empty() && job.container.removeBox(*all.back()), tried);
                    if (job.options.dryRun) {
                        all.pop_back();
                    } else if (left > 1) {
                        all = boxesOf(job.container, kind);
                    }
                }
                job.done([&] { return name + " removed (" + byteCount(size) + ")"; });
            },
            kind.isTopLevel() ? Result::sameFile : Result::newFile};
}

} // namespace edit
