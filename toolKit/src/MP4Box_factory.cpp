#include "MP4Box.h"

#include "MP4Box_avcc.h"

namespace MP4 {

namespace {

template <class Box>
std::unique_ptr<BOX> make(const BOX& header, BOX* parent) {
    return std::make_unique<Box>(header, parent);
}

} // namespace

// `moov`, `meta` and `uuid` get no parent: the walk that corrects sizes up the parents ends there.
std::unique_ptr<BOX> ROOT::allocChild(BOX& header) {
    switch (header.tag) {
    case fourcc("ftyp"):
        return make<FTYP>(header, this);
    case fourcc("mdat"):
        return make<MDAT>(header, this);
    case fourcc("meta"):
        return make<META>(header, nullptr);
    case fourcc("moov"):
        return make<MOOV>(header, nullptr);
    case fourcc("uuid"):
        return make<UUID>(header, nullptr);
    default:
        return make<BOX>(header, this);
    }
}

std::unique_ptr<BOX> MOOV::allocChild(BOX& header) {
    switch (header.tag) {
    case fourcc("mvhd"):
        return make<MVHD>(header, this);
    case fourcc("udta"):
        return make<UDTA>(header, this);
    case fourcc("trak"):
        return make<TRAK>(header, this);
    default:
        return make<BOX>(header, this);
    }
}

std::unique_ptr<BOX> TRAK::allocChild(BOX& header) {
    switch (header.tag) {
    case fourcc("uuid"):
        return make<UUID>(header, this);
    case fourcc("tkhd"):
        return make<TKHD>(header, this);
    case fourcc("mdia"):
        return make<MDIA>(header, this);
    default:
        return make<BOX>(header, this);
    }
}

std::unique_ptr<BOX> MDIA::allocChild(BOX& header) {
    switch (header.tag) {
    case fourcc("mdhd"):
        return make<MDHD>(header, this);
    case fourcc("minf"):
        return make<MINF>(header, this);
    default:
        return make<BOX>(header, this);
    }
}

std::unique_ptr<BOX> MINF::allocChild(BOX& header) {
    return header.tag == fourcc("stbl") ? make<STBL>(header, this) : make<BOX>(header, this);
}

std::unique_ptr<BOX> STBL::allocChild(BOX& header) {
    switch (header.tag) {
    case fourcc("co64"):
        return make<CO64>(header, this);
    case fourcc("stco"):
        return make<STCO>(header, this);
    case fourcc("stsc"):
        return make<STSC>(header, this);
    case fourcc("stsd"):
        return make<STSD>(header, this);
    case fourcc("stsz"):
        return make<STSZ>(header, this);
    case fourcc("stts"):
        return make<STTS>(header, this);
    default:
        return make<BOX>(header, this);
    }
}

std::unique_ptr<BOX> STSD::allocChild(BOX& header) {
    switch (header.tag) {
    case fourcc("sowt"):
        return make<SOWT>(header, this);
    case fourcc("avc1"):
        return make<AVC1>(header, this);
    default:
        return make<BOX>(header, this);
    }
}

std::unique_ptr<BOX> AVC1::allocChild(BOX& header) {
    return header.tag == fourcc("avcC") ? make<AVCC>(header, this) : make<BOX>(header, this);
}

std::unique_ptr<BOX> UDTA::allocChild(BOX& header) {
    switch (header.tag) {
    case fourcc("loci"):
        return make<LOCI>(header, this);
    case fourcc("\xA9xyz"):
        return make<XYZ>(header, this);
    default:
        return make<BOX>(header, this);
    }
}

std::unique_ptr<BOX> META::allocChild(BOX& header) {
    return header.tag == fourcc("hdlr") ? make<HDLR>(header, this) : make<BOX>(header, this);
}

std::unique_ptr<BOX> UUID::allocChild(BOX& header) {
    return header.tag == fourcc("ZATR") ? make<TRAK>(header, this) : make<BOX>(header, this);
}

} // namespace MP4
