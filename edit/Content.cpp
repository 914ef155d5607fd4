// SPDX-License-Identifier: MIT
// What a recording carries beside sound and pictures, kind by kind: got, put and removed.

#include <algorithm>
#include <vector>

#include <CLI/CLI.hpp>

#include "ByteOrder.h"
#include "Commands.h"
#include "Input.h"
#include "Kinds.h"
#include "Output.h"
#include "SlamMetaData.h"
#include "Tree.h"

namespace edit {

namespace {

using MP4::Container;

const std::vector<Kind>& kinds() {
    static const std::vector<Kind> table = [] {
        std::vector<Kind> all;
        for (const SlamKind& kind : SlamKind::all) {
            all.push_back({kind.name, "uuid", kind.identity});
        }
        all.push_back({"xmp", "uuid", MP4::XMP::_UUID, true});
        all.push_back({"axis", "uuid", MP4::AXIS::_UUID});
        all.push_back({"spherical", "moov.trak.uuid", MP4::SphericalXML::_UUID, true});
        all.push_back({"udta", "moov.udta"});
        return all;
    }();
    return table;
}

void demandUserData(const std::string& content, const std::string& path) {
    const bool whole = content.size() >= MP4::BOX::compactHeader && content.substr(4, 4) == "udta" &&
                       MP4::loadBigEndian<uint32_t>(content.data()) == content.size();
    if (!whole) {
        throw WrongArguments(path + ": not one whole box of type udta");
    }
}

ByteArray bytes(const std::string& content) {
    ByteArray array;
    array.assign(content.data(), content.size());
    return array;
}

std::vector<std::string> kindNames() {
    std::vector<std::string> names;
    for (const Kind& kind : kinds()) {
        names.emplace_back(kind.name);
    }
    return names;
}

void kindArgument(CLI::App& app, Options& options) {
    app.add_option("KIND", options.value)->required()->check(CLI::IsMember(kindNames()));
}

} // namespace

bool Kind::isTopLevel() const {
    return std::string_view(path).find('.') == std::string_view::npos;
}

const Kind& kindNamed(const std::string& name) {
    return *std::find_if(kinds().begin(), kinds().end(), [&](const Kind& kind) { return kind.name == name; });
}

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

std::string contentIn(const Container& container, const Kind& kind, const MP4::BOX& box) {
    return kind.isWholeBox() ? bytesOf(container, box) : bodyOf(container, box);
}

bool holds(const Container& container, const Kind& kind, const MP4::BOX& box, const std::string& content) {
    const uint64_t prefix = kind.isWholeBox() ? 0 : box.headerSize() + kind.identity.size();
    return box.boxSize == prefix + content.size() && matches(container, box.offset + prefix, content);
}

const char* lacking(const Container& container, const Kind& kind) {
    return kind.isTopLevel()           ? nullptr
           : container.moov == nullptr ? "has no movie (moov)"
           : kind.isWholeBox()         ? nullptr
           : container.trak == nullptr ? "has no video track"
           : container.mdat == nullptr ? "has no media data (mdat)"
                                       : nullptr;
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
    return [&kind = kindNamed(options.value)](Job& job) {
        Container& container = job.container;
        container.keepContents = false;
        if (!container.attach(job.path)) {
            return job.failed("could not be opened");
        }
        const MP4::BOX* const box = boxOf(container, kind);
        if (box == nullptr) {
            return looksLikeMp4(container) ? job.notThere(std::string("has no ") + kind.name)
                                           : job.failedFor("is no MP4 file");
        }
        const std::string content = contentIn(container, kind, *box);
        return writeResult(job, [&](const Sink& sink) { return sink(content); });
    };
}

void putArguments(CLI::App& app, Options& options) {
    kindArgument(app, options);
    app.add_option("INPUT", options.input, "file with the content; - is the standard input")->required();
    app.add_flag("--replace", options.replace, "replace other content that is there");
}

Work put(const Options& options) {
    const Kind& kind = kindNamed(options.value);
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
    return [&kind, content = std::move(content)](Job& job) {
        demandOther(job.options.input, job.name);
        if (const char* const reason = lacking(job.container, kind)) {
            return job.failedFor(reason);
        }
        const MP4::BOX* const existing = boxOf(job.container, kind);
        const std::string name = kind.name;
        if (existing != nullptr && holds(job.container, kind, *existing, content)) {
            return job.nothingToDo("this " + name + " is there");
        }
        if (existing != nullptr && !job.options.replace) {
            return job.refused("another " + name + " is there; --replace puts this one in its place");
        }
        return putInto(job.container, kind, content)
                   ? job.done([&] { return name + " put in (" + grouped(content.size()) + " bytes)"; })
                   : job.failed("the " + name + " could not be put in");
    };
}

void removeArguments(CLI::App& app, Options& options) {
    std::vector<std::string> names = kindNames();
    names.insert(names.end(), {"location", "sound"});
    app.add_option("KIND", options.value)->required()->check(CLI::IsMember(names));
}

Work remove(const Options& options) {
    if (options.value == "location") {
        return removeLocation(options);
    }
    static const Kind sound{"sound", "uuid", MP4::SpatialData::_UUID};
    return [&kind = options.value == sound.name ? sound : kindNamed(options.value)](Job& job) {
        std::vector<MP4::BOX*> all = boxesOf(job.container, kind);
        const std::string name = kind.name;
        if (all.empty()) {
            return job.notThere("has no " + name);
        }
        const uint64_t size = all.front()->boxSize;
        // From the last to the first: until that goes, it is the one that counts.
        while (job.container.removeBox(*all.back())) {
            const bool more = all.size() > 1 && !job.options.dryRun;
            if (!more || (all = boxesOf(job.container, kind)).empty()) {
                return job.done([&] { return name + " removed (" + grouped(size) + " bytes)"; });
            }
        }
        return job.failed("the " + name + " could not be removed");
    };
}

} // namespace edit
