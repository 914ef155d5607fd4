// What a recording carries beside sound and pictures, kind by kind: got, put and removed.

#include <algorithm>
#include <array>

#include <CLI/CLI.hpp>

#include "ByteOrder.h"
#include "Commands.h"
#include "Input.h"
#include "Output.h"
#include "Tree.h"

namespace edit {

namespace {

using MP4::Container;

/// A kind of content and the box that carries it.
struct Kind {
    const char* name;
    const char* path;         ///< where such boxes lie
    MP4::Usertype identity{}; ///< of a `uuid` box; zeros for another one, whose content is the whole box
    bool xml = false;

    [[nodiscard]] bool isWholeBox() const { return identity == MP4::Usertype{}; }
};

constexpr const char* userData = "moov.udta";
constexpr std::array<Kind, 7> kinds{{
    {"map",
     "uuid",
     {0x8B, 0x18, 0xD5, 0xC3, 0x0E, 0x7A, 0x25, 0xC7, 0xB3, 0xAD, 0x25, 0x23, 0x58, 0xB4, 0x01, 0xEE}},
    {"walk",
     "uuid",
     {0x2D, 0xDF, 0x0C, 0x53, 0xD6, 0xD1, 0x4C, 0xB4, 0x9C, 0x2B, 0x16, 0x9D, 0x03, 0x7B, 0x76, 0x81}},
    {"around",
     "uuid",
     {0x36, 0x45, 0xB4, 0xBF, 0x9D, 0x5C, 0x43, 0xD5, 0x83, 0xD3, 0x95, 0xA8, 0xB8, 0x81, 0x83, 0x83}},
    {"xmp", "uuid", MP4::XMP::_UUID, true},
    {"axis", "uuid", MP4::AXIS::_UUID},
    {"spherical", "moov.trak.uuid", MP4::SphericalXML::_UUID, true},
    {"udta", userData},
}};

const Kind& kindNamed(const std::string& name) {
    return *std::find_if(kinds.begin(), kinds.end(), [&](const Kind& kind) { return kind.name == name; });
}

/// The box of that kind; null if there is none. One that is cut off is not there.
MP4::BOX* boxOf(const Container& container, const Kind& kind) {
    MP4::BOX* found = nullptr;
    container.find(kind.path, [&](MP4::BOX& box) {
        const bool right = kind.isWholeBox() || static_cast<const MP4::UUID&>(box).is(kind.identity);
        if (right && box.endWithin(container.root->boxSize) == box.end()) {
            found = found == nullptr ? &box : found;
        }
        return found == nullptr;
    });
    return found;
}

std::string contentIn(const Container& container, const Kind& kind, const MP4::BOX& box) {
    return kind.isWholeBox() ? bytesOf(container, box) : bodyOf(container, box);
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

bool append(Container& container, const Kind& kind, const std::string& content) {
    const auto prefix =
        MP4::UUID::prefix(static_cast<uint32_t>(MP4::UUID::prefixSize + content.size()), kind.identity);
    ByteArray header;
    header.assign(prefix.data(), MP4::BOX::compactHeader);
    return container.append(header, [&](Brisa::FileIO& file) {
        return file.writeAll(kind.identity.data(), kind.identity.size()) == kind.identity.size() &&
               file.writeAll(content.data(), content.size()) == content.size();
    });
}

bool putInto(Container& container, const Kind& kind, const std::string& content) {
    if (kind.isWholeBox()) {
        return container.replaceUdta(0, bytes(content));
    }
    return kind.identity == MP4::SphericalXML::_UUID ? container.appendSphericalVideoXML(content)
                                                     : append(container, kind, content);
}

void kindArgument(CLI::App& app, Options& options) {
    std::vector<std::string> names;
    for (const Kind& kind : kinds) {
        names.emplace_back(kind.name);
    }
    app.add_option("KIND", options.value)->required()->check(CLI::IsMember(names));
}

} // namespace

void getArguments(CLI::App& app, Options& options) {
    kindArgument(app, options);
    fileArgument(app, options);
    app.add_option("-o,--output", options.output, "where it goes; without it, or with -, to standard output");
    app.add_flag("--force", options.force, "replace OUTPUT if it is there");
}

Work get(const Options& options) {
    return [&kind = kindNamed(options.value)](Session& session) {
        Container& container = session.container;
        container.keepContents = false;
        if (!container.attach(session.path)) {
            return session.failed("could not be opened");
        }
        const MP4::BOX* const box = boxOf(container, kind);
        if (box == nullptr) {
            return session.notThere(std::string("has no ") + kind.name);
        }
        const std::string content = contentIn(container, kind, *box);
        return writeResult(session, [&](const Sink& sink) { return sink(content); });
    };
}

void putArguments(CLI::App& app, Options& options) {
    kindArgument(app, options);
    app.add_option("INPUT", options.input, "file with the content; - is the standard input")->required();
    app.add_flag("--replace", options.replace, "replace other content that is there");
}

Work put(const Options& options) {
    const Kind& kind = kindNamed(options.value);
    const std::string content = contentOf(options.input);
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
    return [&kind, content](Session& session) {
        const MP4::BOX* const existing = boxOf(session.container, kind);
        const std::string name = kind.name;
        if (existing != nullptr && contentIn(session.container, kind, *existing) == content) {
            return session.nothingToDo("this " + name + " is there");
        }
        if (existing != nullptr && !session.options.replace) {
            return session.refused("another " + name + " is there; --replace puts this one in its place");
        }
        return putInto(session.container, kind, content)
                   ? session.done(name + " put in (" + grouped(content.size()) + " bytes)")
                   : session.failed("the " + name + " could not be put in");
    };
}

} // namespace edit
