// SPDX-License-Identifier: MIT
#include "MP4Box.h"

#include "MP4Box_avcc.h"

namespace MP4 {

namespace {

template <class Box>
std::unique_ptr<BOX> typed(const BOX& header, BOX* parent) {
    return std::make_unique<Box>(header, parent);
}

} // namespace

// `moov`, `meta` and `uuid` get no parent: the walk that corrects sizes up the parents ends there.
std::unique_ptr<BOX> ROOT::allocChild(BOX& header) {
    switch (header.tag) {
    case fourcc("ftyp"):
        return typed<FTYP>(header, this);
    case fourcc("mdat"):
        return typed<MDAT>(header, this);
    case fourcc("meta"):
        return typed<META>(header, nullptr);
    case fourcc("moov"):
        return typed<MOOV>(header, nullptr);
    case fourcc("uuid"):
        return typed<UUID>(header, nullptr);
    default:
        return typed<BOX>(header, this);
    }
}

std::unique_ptr<BOX> MOOV::allocChild(BOX& header) {
    switch (header.tag) {
    case fourcc("mvhd"):
        return typed<MVHD>(header, this);
    case fourcc("udta"):
        return typed<UDTA>(header, this);
    case fourcc("trak"):
        return typed<TRAK>(header, this);
    default:
        return typed<BOX>(header, this);
    }
}

std::unique_ptr<BOX> TRAK::allocChild(BOX& header) {
    switch (header.tag) {
    case fourcc("uuid"):
        return typed<UUID>(header, this);
    case fourcc("tkhd"):
        return typed<TKHD>(header, this);
    case fourcc("mdia"):
        return typed<MDIA>(header, this);
    default:
        return typed<BOX>(header, this);
    }
}

std::unique_ptr<BOX> MDIA::allocChild(BOX& header) {
    switch (header.tag) {
    case fourcc("mdhd"):
        return typed<MDHD>(header, this);
    case fourcc("minf"):
        return typed<MINF>(header, this);
    default:
        return typed<BOX>(header, this);
    }
}

std::unique_ptr<BOX> MINF::allocChild(BOX& header) {
    return header.tag == fourcc("stbl") ? typed<STBL>(header, this) : typed<BOX>(header, this);
}

std::unique_ptr<BOX> STBL::allocChild(BOX& header) {
    switch (header.tag) {
    case fourcc("co64"):
        return typed<CO64>(header, this);
    case fourcc("stco"):
        return typed<STCO>(header, this);
    case fourcc("stsc"):
        return typed<STSC>(header, this);
    case fourcc("stsd"):
        return typed<STSD>(header, this);
    case fourcc("stsz"):
        return typed<STSZ>(header, this);
    case fourcc("stts"):
        return typed<STTS>(header, this);
    default:
        return typed<BOX>(header, this);
    }
}

std::unique_ptr<BOX> STSD::allocChild(BOX& header) {
    switch (header.tag) {
    case fourcc("sowt"):
        return typed<SOWT>(header, this);
    case fourcc("avc1"):
        return typed<AVC1>(header, this);
    default:
        return typed<BOX>(header, this);
    }
}

std::unique_ptr<BOX> AVC1::allocChild(BOX& header) {
    return header.tag == fourcc("avcC") ? typed<AVCC>(header, this) : typed<BOX>(header, this);
}

std::unique_ptr<BOX> UDTA::allocChild(BOX& header) {
    switch (header.tag) {
    case fourcc("loci"):
        return typed<LOCI>(header, this);
    case fourcc("\xA9xyz"):
        return typed<XYZ>(header, this);
    default:
        return typed<BOX>(header, this);
    }
}

std::unique_ptr<BOX> META::allocChild(BOX& header) {
    return header.tag == fourcc("hdlr") ? typed<HDLR>(header, this) : typed<BOX>(header, this);
}

std::unique_ptr<BOX> UUID::allocChild(BOX& header) {
    return header.tag == fourcc("ZATR") ? typed<TRAK>(header, this) : typed<BOX>(header, this);
}

} // namespace MP4
