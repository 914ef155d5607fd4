// SPDX-License-Identifier: MIT
// Mutates the boxes of a file: takes out, doubles, moves, wraps, and gives each the size that it then has.
// Every second time libFuzzer mutates the bytes, so that sizes lie as well. The first byte of an input is no
// part of the file.

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "support/Bytes.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

using test::Bytes;

constexpr std::array<const char*, 12> parents{"moov", "trak", "mdia", "minf", "dinf", "stbl",
                                              "udta", "meta", "uuid", "ZATR", "avc1", "stsd"};
constexpr std::array<const char*, 14> leaves{"free", "mdat", "stco", "co64", "stsz", "stsc", "saio",
                                             "loci", "ZDT9", "ZADT", "moof", "iloc", "avcC", "tkhd"};

/// How many bytes a parent has ahead of its children; none for a box that has no children.
size_t fieldsOf(const Bytes& type) {
    const size_t fields = type == "uuid"   ? 16
                          : type == "meta" ? 4
                          : type == "stsd" ? 8
                          : type == "avc1" ? 78
                                           : 0;
    return std::find(parents.begin(), parents.end(), type) == parents.end() ? Bytes::npos : fields;
}

struct Node {
    Bytes type;
    Bytes body; ///< what is ahead of the children
    std::vector<Node> children;
};

/// The boxes in these bytes; what is none is the body of one without a type.
std::vector<Node> parse(const Bytes& bytes, int depth = 0) {
    std::vector<Node> nodes;
    size_t at = 0;
    while (bytes.size() - at >= 8) {
        const size_t size = MP4::loadBigEndian<uint32_t>(bytes.data() + at);
        if (size < 8 || size > bytes.size() - at) {
            break;
        }
        Node node{bytes.substr(at + 4, 4), bytes.substr(at + 8, size - 8), {}};
        const size_t fields = fieldsOf(node.type);
        if (fields <= node.body.size() && depth < 20) {
            node.children = parse(node.body.substr(fields), depth + 1);
            node.body.resize(fields);
        }
        nodes.push_back(node);
        at += size;
    }
    if (at < bytes.size()) {
        nodes.push_back({"", bytes.substr(at), {}});
    }
    return nodes;
}

Bytes written(const std::vector<Node>& nodes) {
    Bytes bytes;
    for (const Node& node : nodes) {
        const Bytes content = node.body + written(node.children);
        bytes += node.type.empty() ? content : test::box(node.type, {content});
    }
    return bytes;
}

void collect(std::vector<Node>& nodes, std::vector<std::vector<Node>*>& lists) {
    lists.push_back(&nodes);
    for (Node& node : nodes) {
        collect(node.children, lists);
    }
}

void change(std::vector<Node>& file, std::minstd_rand& random) {
    std::vector<std::vector<Node>*> lists;
    collect(file, lists);
    const auto below = [&](size_t count) { return static_cast<ptrdiff_t>(random() % count); };
    std::vector<Node>& nodes = *lists[static_cast<size_t>(below(lists.size()))];
    const auto place = nodes.begin() + below(nodes.size() + 1);
    const bool there = place != nodes.end();
    switch (below(6)) {
    case 0:
        nodes.erase(place, there ? place + 1 : place);
        break;
    case 1:
        nodes.insert(place,
                     {leaves[static_cast<size_t>(below(leaves.size()))], test::zeros(random() % 40), {}});
        break;
    case 2: { // a copy elsewhere
        const Node copy = there ? *place : Node{"free", "", {}};
        std::vector<Node>& target = *lists[static_cast<size_t>(below(lists.size()))];
        target.insert(target.begin() + below(target.size() + 1), copy);
        break;
    }
    case 3:
        std::rotate(nodes.begin(), place, nodes.end());
        break;
    case 4:
        if (there) {
            const Bytes type = parents[static_cast<size_t>(below(parents.size()))];
            *place = {type, test::zeros(fieldsOf(type)), {*place}};
        }
        break;
    default:
        if (there && place->body.size() >= 4) {
            const uint32_t word = std::array<uint32_t, 6>{0, 1, 8, 24, 1U << 31, ~0U}[random() % 6];
            place->body.replace(static_cast<size_t>(below(place->body.size() - 3)), 4, test::u32(word));
        }
    }
}

} // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
    std::minstd_rand random(seed);
    if (size > 1 && random() % 2 == 0) {
        std::vector<Node> file = parse(Bytes(data + 1, data + size));
        change(file, random);
        const Bytes bytes = written(file);
        if (bytes.size() < maxSize) {
            std::memcpy(data + 1, bytes.data(), bytes.size());
            return 1 + bytes.size();
        }
    }
    return LLVMFuzzerMutate(data, size, maxSize);
}
