// SPDX-License-Identifier: MIT
#include "MP4Box.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "Brisa/BrisaConsole.h"
#include "ByteOrder.h"

namespace MP4 {

static_assert(sizeof(long) == sizeof(uint64_t), "dumps print 64-bit numbers with %lu");

namespace {

using Brisa::Console;

constexpr int maxDepth = 32;

constexpr size_t tagBytes = 4;

} // namespace

ByteArray headerOf(uint32_t tag, uint64_t content) {
    const bool large = content > UINT32_MAX - BOX::compactHeader;
    ByteArray header(BOX::compactHeader + (large ? sizeof(uint64_t) : 0));
    const uint64_t size = header.size() + content;
    storeBigEndian(&header[0], large ? 1 : static_cast<uint32_t>(size));
    std::memcpy(&header[sizeof(uint32_t)], &tag, tagBytes);
    if (large) {
        storeBigEndian(&header[BOX::compactHeader], size);
    }
    return header;
}

ByteArray boxOf(uint32_t tag, const ByteArray& body) {
    ByteArray box = headerOf(tag, body.size());
    box.append(body);
    return box;
}

BOX::BOX(uint64_t offset_, uint64_t size_, uint32_t tag_, BOX* parent_)
    : offset(offset_), boxSize(size_), tag(tag_), parent(parent_) {}

BOX::BOX(const BOX& header, BOX* parent_)
    : depth(header.depth), offset(header.offset), boxSize(header.boxSize), tag(header.tag),
      largeSize(header.largeSize), parent(parent_) {}

BOX::BOX(BinFile& file, int depth_, BOX* parent_) : depth(depth_), offset(file.position()), parent(parent_) {
    std::array<uint8_t, compactHeader> header{};
    file.readBytes(header.data(), header.size());
    boxSize = loadBigEndian<uint32_t>(&header[0]);
    std::memcpy(&tag, &header[sizeof(uint32_t)], sizeof tag);
    if (boxSize == 1) {
        largeSize = true;
        boxSize = file.read64();
    } else if (boxSize == 0) {
        const uint64_t length = file.length();
        boxSize = length > offset ? length - offset : 0;
    }
}

bool BOX::hasChild() const {
    return false;
}

void BOX::dump() const {
    if (tag != 0) {
        Console::out(L"MP4: %ls<%ls >\n", indentation().c_str(), basicTag().c_str());
    } else {
        Console::out(L"MP4: %ls== EOF total=%lld ==\n", indentation().c_str(), offset);
    }
}

void BOX::parseBox(BinFile&, uint64_t) {}

uint64_t BOX::end() const {
    return boxSize > ~uint64_t{0} - offset ? ~uint64_t{0} : offset + boxSize;
}

uint64_t BOX::endWithin(uint64_t length) const {
    uint64_t within = length;
    for (const BOX* around = this; around != nullptr; around = around->parent) {
        within = std::min(within, around->end());
    }
    return within;
}

void BOX::enter(BinFile& file, uint64_t limit) const {
    file.limit = std::min(end(), limit);
}

bool BOX::size(BinFile& file, uint64_t newSize) const {
    const uint64_t back = file.position();
    const bool written = largeSize ? file.seek_set(offset + 8) && file.write64(newSize)
                                   : file.seek_set(offset) && file.write32(newSize & 0xFFFFFFFF);
    return file.seek_set(back) && written;
}

bool BOX::copyTo(Brisa::FileIO& source, Brisa::FileIO& destination) const {
    constexpr uint64_t bulk = 65536;
    if (!source.seek_set(offset)) {
        return false;
    }
    if (boxSize >= bulk) {
        return source.copyTo(destination, boxSize) == boxSize;
    }
    std::array<uint8_t, 1024> chunk;
    for (uint64_t left = boxSize; left != 0;) {
        const uint64_t count = std::min<uint64_t>(left, chunk.size());
        if (source.readAll(chunk.data(), count) != count ||
            destination.writeAll(chunk.data(), count) != count) {
            return false;
        }
        left -= count;
    }
    return true;
}

std::wstring BOX::basicTag() const {
    std::array<char, tagBytes + 1> name{};
    std::memcpy(name.data(), &tag, tagBytes);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "'%ls': start=%llu bytes=%llu",
                  Brisa::wchar::mbs2wcs(name.data()).c_str(), static_cast<unsigned long long>(offset),
                  static_cast<unsigned long long>(boxSize));
    return Brisa::wchar::mbs2wcs(text.data());
}

std::wstring BOX::type() const {
    constexpr unsigned firstPrintable = 0x20;
    constexpr unsigned firstControl = 0x7F;
    constexpr unsigned lastControl = 0x9F;
    std::wstring text;
    for (const uint8_t byte : std::bit_cast<std::array<uint8_t, tagBytes>>(tag)) {
        const bool control = byte < firstPrintable || (byte >= firstControl && byte <= lastControl);
        text += control ? L'?' : static_cast<wchar_t>(byte);
    }
    return text;
}

std::wstring BOX::indentation() const {
    std::wstring blanks(static_cast<size_t>(std::max(depth, 0)) * 4, L' ');
    return blanks;
}

bool NestedBox::hasChild() const {
    return true;
}

void NestedBox::dump() const {
    if (tag != 0) {
        Console::out(L"MP4: %ls<%ls children=%lu >\n", indentation().c_str(), basicTag().c_str(),
                     children.size());
    } else {
        BOX::dump();
    }
    dumpChildren();
}

void NestedBox::dumpChildren() const {
    for (const auto& child : children) {
        child->dump();
    }
}

void NestedBox::parseBox(BinFile& file, uint64_t limit) {
    enter(file, limit);
    parseChildren(file, limit);
}

void NestedBox::parseChildren(BinFile& file, uint64_t limit) {
    const uint64_t last = std::min({end(), limit, file.length()});
    for (;;) {
        BOX header(file, depth + 1, this);
        if (header.tag == 0 || header.boxSize == 0 || !file.allowance.takeHeader(8)) {
            return;
        }
        auto child = header.depth < maxDepth ? allocChild(header) : std::make_unique<BOX>(header, this);
        child->parseBox(file, limit);
        children.push_back(std::move(child));
        if (header.end() >= last || (file.position() != header.end() && !file.seek_set(header.end()))) {
            return;
        }
        enter(file, limit);
    }
}

std::unique_ptr<BOX> NestedBox::allocChild(BOX& header) {
    return std::make_unique<BOX>(header, this);
}

void NestedBox::find(const char* path, std::function<bool(BOX&)> fn) const {
    search(path, [&fn](BOX& box) { return fn(box) ? Search::next : Search::endScan; });
}

void NestedBox::find(const char* path, std::function<Search(BOX&)> fn) const {
    search(path, fn);
}

bool NestedBox::search(const char* path, const std::function<Search(BOX&)>& fn) const {
    uint32_t key;
    if (strnlen(path, tagBytes) < tagBytes) {
        return true;
    }
    std::memcpy(&key, path, sizeof key);
    const char next = path[tagBytes];
    for (const auto& child : children) {
        if (child->tag != key) {
            continue;
        }
        if (next == '\0') {
            if (const Search then = fn(*child); then != Search::next) {
                return then != Search::stop;
            }
        } else if (next == '.' && child->hasChild() &&
                   !static_cast<const NestedBox&>(*child).search(path + tagBytes + 1, fn)) {
            return false;
        }
    }
    return true;
}

void NestedBox::if_not_found(const char* path, std::function<void()> fn) const {
    if (first(path) == nullptr) {
        fn();
    }
}

BOX* NestedBox::first(const char* path) const {
    BOX* found = nullptr;
    find(path, [&found](BOX& box) {
        found = &box;
        return Search::stop;
    });
    return found;
}

void NestedBoxWithVersion::parseBox(BinFile& file, uint64_t limit) {
    enter(file, limit);
    file.readBytes(&versionFlags, sizeof versionFlags);
    parseChildren(file, limit);
}

void ROOT::parseBox(BinFile& file, uint64_t limit) {
    file.allowance.renew(file.length());
    NestedBox::parseBox(file, limit);
}

void ROOT::dump() const {
    Console::out(L"MP4: == %ls ==\n", basicTag().c_str());
    dumpChildren();
}

} // namespace MP4
