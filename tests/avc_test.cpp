// SPDX-License-Identifier: MIT
// H.264 parameter sets, and the flags of a real video changed in a file.

#include <bitset>

#include "MP4Box_avcc.h"
#include "support/Edit.h"

using namespace test;

namespace {

// Syntax as text: bits, blanks for the reader.

std::string u(int count, uint64_t value) {
    return std::bitset<64>(value).to_string().substr(64 - static_cast<size_t>(count)) + ' ';
}

std::string ue(uint32_t number) {
    const std::string code = std::bitset<33>(uint64_t{number} + 1).to_string();
    const std::string value = code.substr(code.find('1'));
    return std::string(value.size() - 1, '0') + value + ' ';
}

Bytes packed(const std::string& bits) {
    Bytes bytes;
    size_t count = 0;
    for (const char bit : bits) {
        if (bit != ' ') {
            bytes.resize(count / 8 + 1);
            bytes.back() = static_cast<char>(bytes.back() | (bit == '1' ? 0x80 >> count % 8 : 0));
            ++count;
        }
    }
    return bytes;
}

Bytes bytesOf(const ByteArray& array) {
    return {array.begin(), array.end()};
}

/// A decoder configuration record with the sets, one picture parameter set and four more bytes.
Bytes record(std::initializer_list<Bytes> sets) {
    Bytes all = Bytes("\x01\x4D\x40\x1F\xFF", 5) + u8(static_cast<uint8_t>(0xE0 | sets.size()));
    for (const Bytes& set : sets) {
        all += u16(static_cast<uint16_t>(set.size())) + set;
    }
    return all + u8(1) + u16(4) + Bytes("\x68\xEF\x3C\x80tail");
}

/// What stands in front of the fields of a profile: NAL unit header, profile, constraint flags, level, id.
std::string head(int profile, int constraint1) {
    return "0 11 00111 " + u(8, static_cast<uint64_t>(profile)) + "0 " + std::to_string(constraint1) + " 0 0 0000 " + u(8, 30) + ue(0);
}

const std::string picture = ue(4) + "0 " + ue(19) + ue(14) + "1 1 0 "; // references, size, frames only, no cropping
const std::string plain = ue(0) + ue(0) + ue(2) + picture;             // picture order count of type 0
const std::string none = "0 ";
const std::string fullRange = "1 101 1 0 "; // video signal type: unspecified format, full range, no colours
const std::string stop = "1";

class Box : public MP4::AVCC {
public:
    explicit Box(const Bytes& record) : AVCC(0, 8 + record.size(), MP4::fourcc("avcC"), nullptr) { payload = arrayOf(record); }
};

std::string changed(const Bytes& payload, Bytes& body) {
    ByteArray out = arrayOf("old");
    bool was = false;
    bool wasConstrained = false;
    bool assigned = false;
    const auto text = printed([&] { assigned = Box(payload).assign_fullRange_and_constrained_set1_flag(out, true, was, wasConstrained); });
    EXPECT_EQ(assigned, !out.empty());
    body = bytesOf(out);
    return text.out;
}

struct SetCase {
    std::string name;
    int profile;
    std::string fields;      ///< between the head and the VUI flag
    std::string vui = "";    ///< from its flag up to the video signal type; none: no VUI
    std::string behind = ""; ///< the VUI behind the video signal type
    std::string before = none;
    std::string after = fullRange;
};

class ParameterSet : public testing::TestWithParam<SetCase> {};

const std::string hrd = ue(1) + u(4, 3) + u(4, 5) + ue(7) + ue(8) + "0 " + ue(65534) + ue(9) + "1 " + u(20, 0xABCDE);
const std::string newVui = "1 0 0 " + fullRange + "0 0 0 0 0 0 ";
const std::string eightLists = "1 " + std::string(16, '1') + " 1 " + ue(16) + "0 0 0 0 1 " + std::string(64, '1') + " 0 ";

/// With the block of the high profiles, and without it in those that have none.
const std::vector<SetCase> profiles = [] {
    std::vector<SetCase> cases;
    for (const int high : {44, 83, 86, 100, 110, 118, 122, 128, 138, 244}) {
        cases.push_back({"High" + std::to_string(high), high, ue(1) + ue(0) + ue(2) + "0 0 " + plain});
    }
    for (const int other : {66, 88, 134, 139}) {
        cases.push_back({"Other" + std::to_string(other), other, plain});
    }
    return cases;
}();

} // namespace

TEST_P(ParameterSet, KeepsEveryOtherField) {
    const auto& [name, profile, fields, vui, behind, before, after] = GetParam();
    const std::string changedVui = vui.empty() ? newVui : vui + after + behind;
    Bytes body;
    EXPECT_EQ(changed(record({packed(head(profile, 0) + fields + (vui.empty() ? none : vui + before + behind) + stop), "second"}), body),
              "");
    EXPECT_EQ(body, record({packed(head(profile, 1) + fields + changedVui + stop), "second"}));

    unsigned char told = 0;
    bool constrained = false;
    bool full = false;
    EXPECT_TRUE(Box(body).get_profile_idc_and_constrained_set1_flag(told, constrained, full));
    EXPECT_EQ(told, profile);
    EXPECT_TRUE(constrained && full);
}

INSTANTIATE_TEST_SUITE_P(
    Syntax, ParameterSet,
    testing::Values(
        SetCase{"VuiWithoutSignalType", 77, plain, "1 1 " + u(8, 255) + u(32, 0x00040003) + "1 0 ", "1 " + ue(2) + ue(3) + "0 0 0 0 0 "},
        SetCase{"SignalTypeWithColours", 77, plain, "1 1 " + u(8, 1) + "0 ", u(24, 0x010203) + "0 0 0 0 0 0 ", "1 000 0 1 ", "1 101 1 1 "},
        SetCase{"TimingAndBothHrds", 77, plain, "1 0 0 ", "0 1 " + u(32, 1001) + u(32, 60000) + "1 1 " + hrd + "1 " + hrd + "1 1 0 "},
        SetCase{"OrderCountType1", 77, ue(0) + ue(1) + "1 " + ue(3) + ue(4) + ue(2) + ue(5) + ue(6) + picture},
        SetCase{"InterlacedAndCropped", 77, ue(0) + ue(2) + ue(4) + "0 " + ue(19) + ue(14) + "0 1 1 1 " + ue(1) + ue(2) + ue(3) + ue(4)},
        SetCase{"HighWithEightLists", 100, ue(1) + ue(0) + ue(2) + "0 1 " + eightLists + plain},
        SetCase{"High444WithTwelveLists", 244, ue(3) + "0 " + ue(0) + ue(1) + "1 1 0000 0000 0001 " + ue(16) + plain}),
    nameOf<SetCase>);

INSTANTIATE_TEST_SUITE_P(Profiles, ParameterSet, testing::ValuesIn(profiles), nameOf<SetCase>);

TEST(ParameterSet, GetsEmulationPreventionWhereItNeedsIt) {
    // The timing fields hold 00 00 00 01 and so on at any alignment: the raw set is escaped on disk.
    const auto withTiming = [](int constraint1, const std::string& signal) {
        return packed(head(77, constraint1) + plain + "1 0 0 " + signal + "0 1 " + u(32, 1) + u(32, 50) + "1 0 0 0 0 " + stop);
    };
    const auto escaped = [](const Bytes& raw) {
        Bytes unit;
        for (const char byte : raw) {
            const bool needed = unit.size() >= 2 && unit.ends_with(zeros(2)) && static_cast<uint8_t>(byte) <= 3;
            unit += needed ? Bytes{3, byte} : Bytes{byte};
        }
        return unit;
    };
    const Bytes before = withTiming(0, "0 ");
    const Bytes after = withTiming(1, fullRange);
    ASSERT_NE(escaped(before), before);
    ASSERT_NE(escaped(after), after);
    Bytes body;
    changed(record({escaped(before)}), body);
    EXPECT_EQ(body, record({escaped(after)}));
    changed(record({escaped(before) + zeros(3)}), body);
    EXPECT_EQ(body, record({escaped(after)})) << "zero bytes behind the set are no part of it";
    changed(record({before}), body);
    EXPECT_EQ(body, record({after})) << "not escaped before, not escaped now";
}

TEST(ParameterSet, IsLeftAloneWhenItIsNotUnderstood) {
    const Bytes good = packed(head(66, 0) + plain + none + stop);
    const std::pair<Bytes, std::string> cases[] = {
        {record({good}).substr(0, 10), "avcc.parse() failed: no more data\n"},
        {record({good.substr(0, 5)}), "avcc.sps_parse() failed: no more data\n"},
        {record({packed(head(66, 0)) + zeros(9)}), "avcc.sps_parse() failed: too log golomb sream\n"},
        {record({}), "avcc.sps_parse() failed: no sps\n"},
        {record({packed(head(66, 0) + plain + none + "0")}), "avcc.sps_parse() failed: bad trailing bits\n"},
        {record({good + u8(0x80)}), "avcc.sps_parse() failed: bad trailing bits\n"},
    };
    for (const auto& [payload, line] : cases) {
        Bytes body = "old";
        EXPECT_EQ(changed(payload, body), line);
        EXPECT_EQ(body, "");
    }
    EXPECT_EQ(printed([] { Box(record({})).dump(); }).out, "MP4: <'avcC': start=0 bytes=25 >\n" + cases[3].second);
}

// ---- In a file -------------------------------------------------------------------------------------

namespace {

const std::string marked = "1 0 0 1 101 1 0 0 0 0 0 0 0 "; // as newVui, for a set that has it already
const std::string unmarked = "1 0 0 1 101 0 0 0 0 0 0 0 0 ";

/// A movie whose video track has such a configuration and is followed by `rest`; one chunk lies at `chunk`.
Bytes movie(int constraint1, const std::string& vui, uint32_t chunk, Parts rest) {
    const Bytes configuration = box("avcC", {record({packed(head(66, constraint1) + plain + vui + stop)})});
    return box("moov",
               {box("mvhd"), track({fullBox("stsd", 0, {u32(1), box("avc1", {zeros(78), configuration})}), stco({chunk})}), cat(rest)});
}

const Bytes media = box("mdat", {"samples"});
const Bytes between = box("skip", {Bytes(150'000, 's')}); // more than one block is moved
const Bytes old = box("udta", {"old user data"});
const Bytes fresh = box("udta", {"new"});
const auto onTheWay = static_cast<uint32_t>(movie(0, none, 0, {}).size()); ///< where an item lies that comes first of the rest
const Bytes item = box("meta", {u32(0), fullBox("iloc", 0, {u16(0x4400), u16(1), u16(1), u16(0), u16(1), u32(onTheWay), u32(1)})});
const auto grown = static_cast<uint32_t>(movie(1, newVui, 0, {}).size() - movie(0, none, 0, {}).size());
const std::string line = "Container::appendFullRangeAndConstrainedSet1Flag: 0 - 1, constrained_set1_flag:  0 - 1\n";

/// The same with another size of the configuration.
Bytes lying(Bytes content, uint32_t size) {
    return content.replace(content.find("avcC") - 4, 4, u32(size));
}

const auto mark = edit(&MP4::Container::appendFullRangeAndConstrainedSet1Flag, true);
bool markAndKeep(MP4::Container& container) {
    container.keepUserData = true;
    return mark(container);
}
const auto replaceUdta = edit(&MP4::Container::replaceUdta, 7ULL, arrayOf(fresh));

} // namespace

INSTANTIATE_TEST_SUITE_P(
    Flags, Edit,
    testing::Values(EditCase{"NothingToDo", mark, movie(1, marked, 0, {}), "",
                             "Container::appendFullRangeAndConstrainedSet1Flag: 1 - 1, constrained_set1_flag:  1 - 1\n"},
                    EditCase{"ConstraintAlone", mark, movie(0, marked, 0, {}), movie(1, marked, 0, {}),
                             "Container::appendFullRangeAndConstrainedSet1Flag: 1 - 1, constrained_set1_flag:  0 - 1\n"},
                    EditCase{"NoConfiguration", mark, box("moov", {track({stco({8})})})},
                    EditCase{"SameSize", mark, movie(0, unmarked, 9, {}) + media, movie(1, marked, 9, {}) + media, line},
                    EditCase{"UserDataGivesWay", mark, movie(0, none, 9, {between, box("udta", {Bytes(92, 'u')}), box("free")}) + media,
                             movie(1, newVui, 9, {between, box("free", {zeros(92 - grown)}), box("free")}) + media, line},
                    EditCase{"ItemOnTheWay", mark, movie(0, none, 9, {item, box("udta", {Bytes(92, 'u')})}) + media, "", "failed",
                             "cannot be corrected"},
                    EditCase{"UserDataStays", markAndKeep, movie(0, none, 9, {old, box("free")}) + media,
                             movie(1, newVui, 9 + grown, {old, box("free")}) + media, line},
                    EditCase{"UserDataTooSmall", mark, media + movie(0, none, 8, {box("udta")}), media + movie(1, newVui, 8, {box("udta")}),
                             line},
                    EditCase{"ConfigurationBeyondItsBoxes", mark, lying(movie(0, none, 9, {old}), 0xF0000000), "", "failed",
                             "do not lie within one another"},
                    EditCase{"MediaBehind", mark, movie(0, none, 9, {}) + media, movie(1, newVui, 9 + grown, {}) + media, line},
                    EditCase{"UserDataReplaced", replaceUdta, movie(0, none, 100, {old}) + media,
                             movie(0, none, 100 - static_cast<uint32_t>(old.size() - fresh.size()), {fresh}) + media},
                    EditCase{"UserDataAppended", replaceUdta, movie(0, none, 100, {box("free")}) + media,
                             movie(0, none, 100 + static_cast<uint32_t>(fresh.size()), {box("free"), fresh}) + media},
                    EditCase{"TooFewBoxes", replaceUdta, movie(0, none, 100, {}) + media, "", refused}),
    nameOf<EditCase>);

TEST(ParameterSet, IsReadWhetherOrNotContentsAreKept) {
    const Scratch scratch;
    MP4::Container container;
    container.keepContents = false;
    ASSERT_TRUE(container.attach(scratch.file(movie(1, marked, 0, {}))));
    EXPECT_EQ(printed([&] { container.dump(); }).out.find("failed"), std::string::npos);
}
