// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Brisa/BrisaFileIO.h"
#include "MP4Box.h"

class GPSInfo;

namespace MP4 {

class SpatialSound;

/// One MP4 file: its path and the box tree parsed from it.
///
/// attach() comes first; searches and edits then work on the recorded tree. No file stays open
/// between operations. Every parse makes a new tree, so a box pointer taken before an attach(), or
/// before an edit (most edits end with one), must not be used after it; `moov`, `mdat` and `trak` are renewed
/// with the tree, and all of it goes with the container.
///
/// Different containers may be used in different threads, also on one file, which edits lock. Of one
/// container several threads may call const operations at once, and no others. Nothing is shared but the sink
/// of Brisa::Console and Brisa::FileIO_show_process_file_name, which are set before threads start.
///
/// Thrown is what a callable throws (that can be a `char const*`, if it uses a BitStream),
/// std::bad_function_call for an empty one, and what the standard library throws when memory is short; an
/// operation that ends so leaves the file as one that fails.
class Container {
public:
    std::wstring path; ///< the container's file; empty before the first attach()
    /// Where the next rewrite goes instead of replacing the container's file; cleared by a successful
    /// rewrite, after which the container's path is this one. The text is borrowed: it must be there until
    /// the edit has returned, so the c_str() of a temporary is a use after free.
    const wchar_t* outputPath = nullptr;
    std::unique_ptr<ROOT> root; ///< the latest parse; null before the first
    MOOV* moov = nullptr;       ///< the first top-level `moov`
    MDAT* mdat = nullptr;       ///< the first top-level `mdat`
    /// The video track: the last `trak` whose `tkhd` has a width above 0 and whose media handler is `vide`;
    /// where no handler says so, the last with a width.
    TRAK* trak = nullptr;

    /// Edits of `moov` where it lies behind the media data: a new `moov` is written behind the last box, or
    /// into the hole that an earlier edit left, and the old one becomes a `free` box. No media byte moves and
    /// the file is not copied, but it gets longer. Off: such an edit writes a new file.
    bool newMovieBox = false;
    /// appendFullRangeAndConstrainedSet1Flag() never gives up the user data.
    bool keepUserData = false;
    /// Edits change nothing: they print on standard output what they would do, in lines that begin with
    /// "plan: ", and have the result that they would have. (Those of three steps are not concerned.)
    bool dryRun = false;
    /// Called when an edit that changes something is settled, with all that could refuse it looked at, and
    /// before its first byte is written anywhere; by a dry run, too. For what has to be done first, such as a
    /// copy. If it says no, the edit fails. (Those of three steps do not call it.)
    std::function<bool()> beforeWriting;

    /// Whether a parse keeps the payloads of `uuid` boxes and the entries of sample tables in the tree. A
    /// program that does not read them clears it before attach(): then memory and time do not grow with what
    /// the boxes hold. No edit needs them.
    bool keepContents = true;
    /// Whether a parse that keeps no contents still reads the sample sizes for their total, which dump()
    /// shows.
    bool tableTotals = false;

    Container();
    Container(const Container&) = delete;
    Container& operator=(const Container&) = delete;
    ~Container();

    /// Opens the file read-only, parses its first `limit` bytes and records the main boxes. Any plain file
    /// that opens attaches, whatever it holds. Returns false when it cannot be opened; the file layer
    /// says so, and the container stays as it was. A file that was parsed in part takes no edit.
    bool attach(const std::wstring& path, unsigned long long limit = ~0ULL);
    /// attach() with the file locked, from before the parse until the container is attached to another file
    /// or goes: what a program calls ahead of its edits, so that nobody comes between the look and the
    /// change. Another edit of the file is waited for, two seconds at most. Without it each edit locks the
    /// file for itself, and is refused when somebody wrote to it since it was parsed.
    bool claim(const std::wstring& path);
    /// Makes a new tree from a file that stands at offset 0.
    void parse(BinFile& file, unsigned long long limit);
    /// Whether boxes may be missing from the tree: the system failed to read the file (a line on
    /// standard error says so), or the file has more boxes than its length allows. No edit is made on
    /// the strength of such a tree.
    [[nodiscard]] bool incomplete() const { return partial; }

    /// Runs NestedBox::find() on the root; finds nothing before the first parse.
    void find(const char* boxPath, std::function<bool(BOX&)> predicate) const;
    void find(const char* boxPath, std::function<Search(BOX&)> predicate) const;
    /// Runs the work on a new handle of the container's file, read-only or for update (neither
    /// created nor truncated, at offset 0). Returns whether the file opened. What the work writes is taken
    /// to leave the tree true; after a change of structure attach() again. A handle for update has the file
    /// locked, unless another one has.
    bool open(std::function<void(Brisa::FileIO&)> work) const;
    bool open_a(std::function<void(Brisa::FileIO&)> work);
    /// Prints the whole tree.
    void dump() const;

    /// Appends one box at the end of the file: `header` (8 bytes, or 16 with a largesize; the size counts
    /// all) and what `content` writes behind it, as many bytes as the header says; it tells whether it did.
    ///
    /// The box is written as a `free` box first, which every reader passes over, and gets its type when all
    /// of it is on disk: whatever dies meanwhile, the file is valid, with the box or without it. A `free` box
    /// that an append left half-written is taken away. A last box whose size field is 0 (open to the end of
    /// the file) would swallow the new one: it gets its real size. Refused where a reader would not find the
    /// box: behind bytes that are no box, or a box that is cut off. If anything fails the file is as it was.
    /// Ends with a parse.
    bool append(const ByteArray& header, std::function<bool(Brisa::FileIO&)> content);
    /// The same in the place of a top-level box: the new one is appended, then `old` and any other of its
    /// kind becomes a `free` box.
    bool replaceBox(BOX& old, const ByteArray& header, std::function<bool(Brisa::FileIO&)> content);
    /// Takes a box of the tree out of the file. At the top level it becomes a `free` box, or is cut off where
    /// it is the last one; inside another box it is taken out, and sizes and chunk offsets are corrected.
    bool removeBox(BOX& box);

    // Editing. An edit is settled before a byte is written. It patches the container's own file, by one
    // write; or it writes a new movie box (`newMovieBox`); or it rewrites the file: a complete new file is
    // written under the container's path with ".tmp.mp4" appended (or beside `outputPath`), flushed to disk,
    // given owner, permissions and attributes of the old file, and renamed over it. So the path names the
    // whole old or the whole new file at every moment, and a failed edit leaves the file as it was and no
    // other. A path that is a symbolic link is itself replaced by a rewrite; what it pointed to keeps the
    // old content. Other hard links keep it too.
    //
    // All that points into the file moves with what it points to: the chunk offsets of tracks whose data is
    // in this file, those of spatial sound, its `ZDT9` record. A table of 32-bit offsets that no longer hold
    // them becomes `co64`. An edit that would move what offsets point to that the toolkit cannot correct
    // (movie fragments, `saio`, `iloc`, a damaged sample table) is refused.
    //
    // With `outputPath` the new file takes that path, the old one stays as it is, and the container turns
    // to the new one. A path under which there is something else than a plain file of that one
    // name is refused; so is one that names the container's own file.
    //
    // Only one edit of a file is made at a time: another one waits two seconds for it, then fails. A file
    // that somebody wrote to since it was parsed, or that was not parsed whole, is not edited. The reason of
    // a failure is told on standard error. Once an edit is committed its result is true, whatever the parse
    // behind it says. Every edit that gets as far as writing ends with a parse, so box pointers taken before
    // it are invalid.

    /// Patches the container's own file: `edit` is called with it, open for reading and writing, and
    /// tells whether it succeeded. On failure prints "Container::modifyContainer::%ls(%ls)
    /// failed.\n" with the operation and the path; what was written stays written.
    bool modifyContainer(const wchar_t* operation, std::function<bool(BinFile&)> edit);

    /// Rewrites the file in three steps, each of which tells whether to go on:
    /// - `copy` gets the old file, the new (empty) one and a number, which it sets to the offset from
    ///   which the new file cannot be parsed yet (its end, if all of it can);
    /// - `first` gets a container that has parsed the new file up to that offset (keeping no contents),
    ///   and the new file open for reading and writing; it corrects the sizes of boxes;
    /// - `second` gets the same container with the whole new file parsed; it corrects chunk offsets.
    ///
    /// On failure prints "Container::modifyContainer::%ls(%ls to %ls) failed.\n" with the operation,
    /// the path and the path of the new file.
    bool modifyContainer(const wchar_t* operation,
                         std::function<bool(BinFile&, BinFile&, unsigned long long&)> copy,
                         std::function<bool(Container&, BinFile&)> first,
                         std::function<bool(Container&, BinFile&)> second);

    /// A rewrite that copies the file and puts what `write` writes right behind `box`, or in its
    /// place. Sizes and chunk offsets are left to the two steps. Refused when there are movie fragments
    /// behind the box, whose offsets nothing corrects.
    bool insertBox(const wchar_t* operation, BOX& box, bool replace, std::function<bool(BinFile&)> write,
                   std::function<bool(Container&, BinFile&)> first,
                   std::function<bool(Container&, BinFile&)> second);

    /// Adds `change` bytes to the size of the box and of every box around it, in the file. False,
    /// with nothing written, when a size would leave its range.
    bool modifyBoxSize(BinFile& file, BOX& box, long long change);

    /// Shifts every chunk offset by `change` bytes: of all tracks under "moov.trak.mdia.minf.stbl", of
    /// the spatial-audio track under "uuid.ZATR.mdia.minf.stbl", or under any path that ends in
    /// "stbl". False when there is no table, and, with nothing written, when an offset would leave
    /// the range of its field.
    bool modifySTCOIndex(BinFile& file, long long change);
    bool modifySpatialTrakSTCOIndex(BinFile& file, long long change);
    bool modifySTCOIndexImpl(const std::string& sampleTablePath, BinFile& file, long long change);

    // Layout.

    /// Rewrites the file with `moov` directly ahead of the first `mdat`; everything else keeps its
    /// order, bytes behind the last box included. False when `moov` is ahead already or there is nothing to
    /// move (the file is not touched, nothing is printed), when a box is cut off, or when the rewrite fails.
    bool moovFirst();
    /// Whether an `mdat` comes before any `moov` at the top level.
    [[nodiscard]] bool isMdatFirst() const;
    /// Writes `time`, in seconds since 1904-01-01 UTC, as the creation time into the movie header and
    /// the header and media header of every track, in place, by one write. Headers that are absent or have no
    /// room for it are passed over. False when the file does not have the time.
    bool updateTimeStamp(unsigned long long time);

    // Location.

    /// Builds the location boxes that the file does not have yet, in this order: `@xyz` (the text last
    /// given to the record), `loci` and `©xyz`; without a `udta` to put them into, a new `udta` around
    /// them. `udta` is set to the movie's own if there is one, else left as it is. False when nothing is
    /// missing. The boxes are laid out in docs/boxes.md.
    /// Without `onlyMissing`, all three.
    bool build_locationBOX(BOX*& udta, ByteArray& out, const GPSInfo& position,
                           bool onlyMissing = true) const;
    /// Adds the location boxes that are missing to the movie's `udta`, or a new `udta` to `moov`. When
    /// all are there: "MP4: No location-boxes were appended.\n" and true. False without `moov` or `mdat`.
    bool appendLocations(const GPSInfo& position);
    /// All three location boxes, in the place of those that the movie has, and by the same edit, unless they
    /// are empty, a spherical-video XML and an XMP packet in the place of those. With `onlyMissing` the
    /// location boxes that are there stay as they are. False without `moov`, and for an XML without a video
    /// track.
    bool replaceLocations(const GPSInfo& position, const std::string& xml = {},
                          const std::string& packet = {}, bool onlyMissing = false);
    /// Takes out the location boxes; true as well when there are none.
    bool removeLocations();
    /// Takes out the movie's first `loci` box if it has the malformed size of 28 bytes; true as well when
    /// it has not.
    bool removeBadLOCI();
    /// Copies a complete `meta` box from `source` to the end of `moov`. When `moov` has a `meta` already:
    /// "MP4: moov.meta(GPS) is existed.\n" and true. False when `moov` has fewer than 3 children.
    bool appendGpsMeta(Brisa::FileIO& source, unsigned long long offset, unsigned long long size);

    // Spherical video, XMP and axis: `uuid` boxes that carry a text, whose content is not examined. A text
    // that a box with a 32-bit size cannot hold fails the edit.

    /// Puts a spherical-video box with the XML into `out` and sets `existing` to the one that a track has
    /// (the last one, if several have), else leaves it as it is. Always true.
    bool build_sphericalVideoXmlBOX(BOX*& existing, ByteArray& out, const std::string& xml) const;
    /// Puts the XML into the video track, as its last child or in the place of the spherical-video box
    /// that a track has. False without `moov`, `mdat` or a video track.
    bool appendSphericalVideoXML(const std::string& xml);
    /// Both at once, in a single rewrite: the location boxes if latitude and longitude are valid, the XML
    /// if it is not empty.
    bool appendLocationAndSphericalVideoXML(const GPSInfo& position, const std::string& xml);
    /// Appends the text at the end of the file, see append(). When the file has a box of that kind
    /// already: "MP4: XMP is existed.\n" or "MP4: AXIS is existed.\n" and true.
    bool appendXMP(const std::string& packet);
    bool appendAxis(const std::string& axis);

    // User data and H.264 flags.

    /// Puts `box`, a complete box (normally a `udta`), in the place of the movie's `udta`, or appends it
    /// to `moov` when there is none; false when `moov` has fewer than 3 children then. Sizes and chunk
    /// offsets are corrected. The first argument has no effect.
    bool replaceUdta(unsigned long long reserved, const ByteArray& box);

    /// Marks the video as full range, or as not, and sets constraint_set1_flag, in the first sequence
    /// parameter set of its `avcC` box (see AVCC; the last one, if several tracks have one). Nothing is
    /// encoded anew. Prints "Container::appendFullRangeAndConstrainedSet1Flag: %d - %d,
    /// constrained_set1_flag:  %d - 1\n" with the old and the wanted full-range flag and the old
    /// constraint_set1_flag. True as well when there is nothing to change, or nothing that can be.
    ///
    /// The changed box goes where it costs least:
    /// - of the old size: over the old box;
    /// - of another size: the boxes between it and a `udta` behind it move by the difference, and a
    ///   `free` box takes the place of the `udta`, whose content is given up; no media data moves;
    /// - without such a `udta`, or with `keepUserData`: as any edit of `moov`.
    ///
    /// The first two write into the file as it stands, within `moov` and nowhere else, in a single write. If
    /// it fails, what was there is put back as long as the system takes it. What stays at risk is `moov`
    /// itself, if the disk fails for good in the middle of that write.
    bool appendFullRangeAndConstrainedSet1Flag(bool fullRange);

    // Spatial sound: a top-level `uuid` box (SpatialData) that holds raw audio and the track that
    // describes it, see SpatialSound. In the movie's user data a `ZDT9` box may tell where the audio lies.

    /// Whether the file has a spatial-data block.
    [[nodiscard]] bool isSpatialDataExist() const;
    /// Appends the block that lies at `offset` of `source`, `length` bytes, or the part of it that `sound`
    /// holds, see append(), with chunk offsets for where it lies now; the `ZDT9` record is written ahead of
    /// the block's type. When the file has a block already: "MP4: SpatialData is existed.\n" and true.
    bool appendSpatialData(Brisa::FileIO& source, unsigned long long offset, unsigned long long length);
    bool trimSpatialData(Brisa::FileIO& source, unsigned long long offset, const SpatialSound& sound);
    /// Shifts the chunk offsets of the spatial track by the distance of the block from where it was in the
    /// file it came from, and writes offset and size of the `ZADT` box into the `ZDT9` record, if there is
    /// one. False, with the file as it was, when the track has no chunk offsets or the record no room.
    bool overwriteSpatialDataOffset(unsigned long long oldOffset);

private:
    friend class Claim;
    friend void reattach(Container& container);
    struct Held; ///< a file that is locked

    void read(Brisa::FileIO& file, unsigned long long limit);
    void refresh();

    bool partial = false;
    Brisa::FileIO::Identity parsed; ///< the file that the tree describes
    std::unique_ptr<Held> held;     ///< what claim() locked
};

/// Shifts every entry of one chunk-offset table by `change` bytes: an STCO of 32-bit entries or a CO64
/// of 64-bit ones. False, with nothing written, when the box has no room for its entries or one would leave
/// its range.
template <class Table, class Entry>
bool modifyIndex(BinFile& file, BOX& table, long long change);

extern template bool modifyIndex<STCO, unsigned int>(BinFile&, BOX&, long long);
extern template bool modifyIndex<CO64, unsigned long long>(BinFile&, BOX&, long long);

} // namespace MP4
