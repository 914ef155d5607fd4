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

class Moves;
class SpatialSound;
struct Insertion;

/// One MP4 file: its path and the box tree parsed from it.
///
/// attach() comes first; searches and edits then work on the recorded tree. No file stays open
/// between operations. Every parse makes a new tree, so a box pointer taken before an attach(), or
/// before an edit (most edits end with one), must not be used after it.
class Container {
public:
    std::wstring path; ///< the container's file; empty before the first attach()
    /// Where the next rewrite goes instead of replacing the container's file; not owned, cleared by
    /// a successful rewrite, after which the container's path is this one.
    const wchar_t* outputPath = nullptr;
    std::unique_ptr<ROOT> root; ///< the latest parse; null before the first
    MOOV* moov = nullptr;       ///< the first top-level `moov`
    MDAT* mdat = nullptr;       ///< the first top-level `mdat`
    TRAK* trak = nullptr;       ///< the video track: the last `trak` whose `tkhd` has a width above 0

    /// Whether a parse keeps the payloads of `uuid` boxes and the entries of sample tables in the tree. A
    /// program that does not read them clears it before attach(): then memory and time do not grow with what
    /// the boxes hold. No edit needs them.
    bool keepContents = true;
    /// Whether a parse that keeps no contents still reads the sample sizes for their total, which dump()
    /// shows.
    bool tableTotals = false;

    Container() = default;
    Container(const Container&) = delete;
    Container& operator=(const Container&) = delete;
    ~Container() = default;

    /// Opens the file read-only, parses its first `limit` bytes and records the main boxes. Any file
    /// that opens attaches, whatever it holds. Returns false when it cannot be opened; the file layer
    /// says so, and the container stays as it was.
    bool attach(const std::wstring& path, unsigned long long limit = ~0ULL);
    /// Makes a new tree from a file that stands at offset 0.
    void parse(BinFile& file, unsigned long long limit);
    /// Whether boxes may be missing from the tree: the system failed to read the file (a line on
    /// standard error says so), or the file has more boxes than its length allows. No edit is made on
    /// the strength of such a tree.
    [[nodiscard]] bool incomplete() const { return partial; }

    /// Runs NestedBox::find() on the root; finds nothing before the first parse.
    void find(const char* boxPath, std::function<bool(BOX&)> predicate) const;
    /// Runs the work on a new handle of the container's file, read-only or for update (neither
    /// created nor truncated, at offset 0). Returns whether the file opened. What the work writes is taken
    /// to leave the tree true; after a change of structure attach() again. A handle for update has the file
    /// locked, unless another one has.
    bool open(std::function<void(Brisa::FileIO&)> work) const;
    bool open_a(std::function<void(Brisa::FileIO&)> work);
    /// Prints the whole tree.
    void dump() const;

    /// Appends one box at the end of the container's file: `write` is called with the file
    /// positioned there and tells whether it wrote the whole box. Refused when the file is not what was
    /// parsed, so that a box that the tree has not is appended only once.
    ///
    /// A last box whose size field is 0 (open to the end of the file) would swallow the new one: it
    /// gets its real size first. Where no reader that walks the boxes arrives at the end (a last
    /// box that is cut off, bytes that are no box) the append is done and a warning on standard
    /// error says so. If anything fails, the file is cut back to its former length, the size field
    /// is put back and the result is false. Success ends with an attach(); so should an exception of
    /// `write`'s, which is passed on.
    bool append(std::function<bool(Brisa::FileIO&)> write);

    // Editing. An edit either patches the container's own file or rewrites it: a complete new file is
    // written under the container's path with ".tmp.mp4" appended (or under `outputPath`), patched,
    // flushed to disk, given the owner and permission bits of the old file, and renamed over it. So
    // the path names the whole old or the whole new file at every moment, and a failed rewrite leaves
    // the old file as it was and no other. A path that is a symbolic link is itself replaced by the
    // new file; what it pointed to keeps the old content. Other hard links keep it too.
    //
    // With `outputPath` the new file stays under that path, the old one stays as it is, and the
    // container turns to the new one; after a failure the output file is gone. A path for the new file
    // under which there is something else than a plain file of that one name is refused; so is one that
    // names the container's own file. Only one edit of a file is made at a time: a second one fails.
    //
    // A file that somebody else wrote to since it was parsed is not edited. The reason of a failure is
    // told on standard error where the toolkit knows it. Every edit, successful or not, ends with an
    // attach(), so box pointers taken before it are invalid.

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
    /// order, bytes behind the last box included. The chunk offsets that point into what moved grow
    /// by the size of `moov`. False when `moov` is ahead already or there is nothing to move (the file
    /// is not touched, nothing is printed), when a box is cut off, or when the rewrite fails.
    bool moovFirst();
    /// Whether an `mdat` comes before any `moov` at the top level.
    [[nodiscard]] bool isMdatFirst() const;
    /// Writes `time`, in seconds since 1904-01-01 UTC, as the creation time into the movie header and
    /// the header and media header of every track, in place. Absent headers are passed over. The tree
    /// is not parsed again.
    bool updateTimeStamp(unsigned long long time);

    // Location.

    /// Builds the location boxes that the file does not have yet, in this order: `@xyz` (the text last
    /// given to the record), `loci` and `©xyz`; without a `udta` to put them into, a new `udta` around
    /// them. `udta` is set to the movie's own if there is one, else left as it is. False when nothing is
    /// missing. The boxes are laid out in docs/boxes.md.
    bool build_locationBOX(BOX*& udta, ByteArray& out, const GPSInfo& position) const;
    /// Adds the location boxes that are missing to the movie's `udta`, or a new `udta` to `moov`. When
    /// all are there: "MP4: No location-boxes were appended.\n" and true. False without `moov` or `mdat`.
    bool appendLocations(const GPSInfo& position);
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
    /// offsets are corrected. If a replacement fails before its offsets are corrected, appending is
    /// tried. The first argument has no effect.
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
    /// - without such a `udta`: by a rewrite.
    ///
    /// The first two write into the file as it stands, within `moov` and nowhere else, in a single write.
    /// All that can be known to fail is known before it; if it fails, what was there is put back as long
    /// as the system takes it. What stays at risk is `moov` itself, if the disk fails for good in the
    /// middle of that write.
    bool appendFullRangeAndConstrainedSet1Flag(bool fullRange);

    // Spatial sound: a top-level `uuid` box (SpatialData) that holds raw audio and the track that
    // describes it, see SpatialSound. In the movie's user data a `ZDT9` box may tell where the audio lies.

    /// Whether the file has a spatial-data block.
    [[nodiscard]] bool isSpatialDataExist() const;
    /// Appends the block that lies at `offset` of `source`, `length` bytes, or the part of it that `sound`
    /// holds, see append(); then does what overwriteSpatialDataOffset() does. If anything fails the file is
    /// cut back. When the file has a block already: "MP4: SpatialData is existed.\n" and true.
    bool appendSpatialData(Brisa::FileIO& source, unsigned long long offset, unsigned long long length);
    bool trimSpatialData(Brisa::FileIO& source, unsigned long long offset, const SpatialSound& sound);
    /// Shifts the chunk offsets of the spatial track by the distance of the block from where it was in the
    /// file it came from, and writes offset and size of the `ZADT` box into the `ZDT9` record, if there is
    /// one. False, with the file as it was, when the track has no chunk offsets or the record no room.
    bool overwriteSpatialDataOffset(unsigned long long oldOffset);

private:
    template <class Kind>
    bool appendOnce(const std::string& text, const wchar_t* notice);

    bool appendBlock(uint64_t sourceOffset, std::function<bool(Brisa::FileIO&)> write);
    /// What overwriteSpatialDataOffset() does, on a file that is open for it.
    bool pointToSpatialData(BinFile& file, uint64_t oldOffset);

    bool partial = false;
    Brisa::FileIO::Identity parsed; ///< the file that the tree describes

    /// Rewrites the file with the insertions, which are in file order. All that follows from them is
    /// done here: sizes up the enclosing boxes, chunk offsets, a spatial-data block that moves. Refused
    /// before anything is written: boxes that do not lie within one another, and media data that would
    /// move although not all that points to it can be found and corrected.
    /// `reachedOffsets`, if given, is set when only the chunk offsets are left to be corrected.
    bool rewrite(const wchar_t* operation, const std::vector<Insertion>& insertions,
                 bool* reachedOffsets = nullptr);
    /// The last step of a rewrite: corrects, in the new file, what points into the bytes that moved.
    bool correctOffsets(Container& written, BinFile& file, const Moves& moves, bool everyChunkMoves) const;
    bool correctSpatialOffsets(Container& written, BinFile& file, const Moves& moves) const;
    /// Whether all media data moves by the same distance.
    [[nodiscard]] bool mediaMovesAsOne(const Moves& moves) const;
    /// Whether all that points into the bytes that move can be corrected; says so if not.
    [[nodiscard]] bool mayMove(const Moves& moves, bool everyChunkMoves) const;
    [[nodiscard]] bool movesFragments(const Moves& moves) const;
    /// Whether an edit gets this file to itself, as long as the handle is open, and the tree describes
    /// it; says so if not.
    [[nodiscard]] bool describes(const Brisa::FileIO& file) const;
    /// The same of the whole file, not only of a part that was parsed.
    [[nodiscard]] bool describesAll(const Brisa::FileIO& file) const;
    /// The strategies of appendFullRangeAndConstrainedSet1Flag() that write into the file as it stands.
    bool overwriteAvcC(const BOX& avcC, const ByteArray& newBox);
    bool overwriteUpToUdta(const BOX& avcC, const ByteArray& newBox, const BOX& udta);
    [[nodiscard]] std::wstring newFilePath() const;
    /// Prints the line of an edit in place that failed; false.
    bool patchFailed(const wchar_t* operation) const;
    /// Ends a rewrite that failed: prints its line and attaches again; false.
    bool rewriteFailed(const wchar_t* operation);
};

/// Shifts every entry of one chunk-offset table by `change` bytes: an STCO of 32-bit entries or a CO64
/// of 64-bit ones. Only entries that lie within the box are touched. False, with nothing written, when
/// an entry would leave its range.
template <class Table, class Entry>
bool modifyIndex(BinFile& file, BOX& table, long long change);

extern template bool modifyIndex<STCO, unsigned int>(BinFile&, BOX&, long long);
extern template bool modifyIndex<CO64, unsigned long long>(BinFile&, BOX&, long long);

} // namespace MP4
