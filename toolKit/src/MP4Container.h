#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Brisa/BrisaFileIO.h"
#include "MP4Box.h"

namespace MP4 {

class Moves;
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

    /// Whether a parse keeps the payloads of `uuid` boxes and the entries of sample tables in the
    /// tree. A program that only needs to know where boxes lie clears it before attach(): then
    /// memory and time do not grow with what the boxes hold.
    bool keepContents = true;

    Container() = default;
    Container(const Container&) = delete;
    Container& operator=(const Container&) = delete;
    ~Container() = default;

    /// Opens the file read-only, parses its first `limit` bytes and records the main boxes. Any
    /// readable file attaches, whatever it holds. Returns false when it cannot be opened (the file
    /// layer says so; the container stays as it was) or when the system fails to read it (a line on
    /// standard error; the container is then empty).
    bool attach(const std::wstring& path, unsigned long long limit = ~0ULL);
    /// Makes a new tree from a file that stands at offset 0.
    void parse(BinFile& file, unsigned long long limit);

    /// Runs NestedBox::find() on the root; finds nothing before the first parse.
    void find(const char* boxPath, std::function<bool(BOX&)> predicate) const;
    /// Runs the work on a new handle of the container's file, read-only or for update (neither
    /// created nor truncated, at offset 0). Returns whether the file opened.
    bool open(std::function<void(Brisa::FileIO&)> work) const;
    bool open_a(std::function<void(Brisa::FileIO&)> work) const;
    /// Prints the whole tree.
    void dump() const;

    /// Appends one box at the end of the container's file: `write` is called with the file
    /// positioned there and tells whether it wrote the whole box.
    ///
    /// A last box whose size field is 0 (open to the end of the file) would swallow the new one: it
    /// gets its real size first. Where no reader that walks the boxes arrives at the end (a last
    /// box that is cut off, bytes that are no box) the append is done and a warning on standard
    /// error says so. If anything fails, the file is cut back to its former length, the size field
    /// is put back and the result is false. The tree is not parsed again.
    bool append(std::function<bool(Brisa::FileIO&)> write) const;

    // Editing. An edit either patches the container's own file or rewrites it: a complete new file is
    // written under the container's path with ".tmp.mp4" appended (or under `outputPath`), patched,
    // flushed to disk, given the owner and permission bits of the old file, and renamed over it. So
    // the path names the whole old or the whole new file at every moment, and a failed rewrite leaves
    // the old file as it was and no other. A path that is a symbolic link is itself replaced by the
    // new file; what it pointed to keeps the old content. Other hard links keep it too.
    //
    // With `outputPath` the new file stays under that path, the old one stays as it is, and the
    // container turns to the new one; after a failure the output file is gone. An output path that
    // names the container's own file is refused.
    //
    // The reason of a failure is told on standard error where the toolkit knows it. Every edit,
    // successful or not, ends with an attach(), so box pointers taken before it are invalid.

    /// Patches the container's own file: `edit` is called with it, open for reading and writing, and
    /// tells whether it succeeded. On failure prints "Container::modifyContainer::%ls(%ls)
    /// failed.\n" with the operation and the path; what was written stays written.
    bool modifyContainer(const wchar_t* operation, std::function<bool(BinFile&)> edit);

    /// Rewrites the file in three steps, each of which tells whether to go on:
    /// - `copy` gets the old file, the new (empty) one and a number, which it sets to the offset from
    ///   which the new file cannot be parsed yet (its end, if all of it can);
    /// - `first` gets a container that has parsed the new file up to that offset, and the new file
    ///   open for reading and writing; it corrects the sizes of boxes;
    /// - `second` gets the same container with the whole new file parsed; it corrects chunk offsets.
    ///
    /// On failure prints "Container::modifyContainer::%ls(%ls to %ls) failed.\n" with the operation,
    /// the path and the path of the new file.
    bool modifyContainer(const wchar_t* operation,
                         std::function<bool(BinFile&, BinFile&, unsigned long long&)> copy,
                         std::function<bool(Container&, BinFile&)> first,
                         std::function<bool(Container&, BinFile&)> second);

    /// A rewrite that copies the file and puts what `write` writes right behind `box`, or in its
    /// place. Sizes and chunk offsets are left to the two steps.
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
    /// is not touched, nothing is printed), when the last box is cut off, or when the rewrite fails.
    bool moovFirst();
    /// Whether an `mdat` comes before any `moov` at the top level.
    [[nodiscard]] bool isMdatFirst() const;
    /// Writes `time`, in seconds since 1904-01-01 UTC, as the creation time into the movie header and
    /// the header and media header of every track, in place. Absent headers are passed over. The tree
    /// is not parsed again.
    bool updateTimeStamp(unsigned long long time);

private:
    void forgetTree();

    /// Rewrites the file with the insertions, which are in file order. All that follows from them is
    /// done here: sizes up the enclosing boxes, chunk offsets, a spatial-data block that moves. An
    /// edit that would move bytes of a movie fragment is refused, since absolute offsets in it would
    /// not be corrected, and so is one of boxes that do not lie within one another.
    bool rewrite(const wchar_t* operation, const std::vector<Insertion>& insertions);
    /// rewrite()'s last step: corrects, in the new file, what points into the bytes that moved.
    bool correctOffsets(Container& written, BinFile& file, const Moves& moves, bool everyChunkMoves) const;
    bool correctSpatialOffsets(Container& written, BinFile& file, const Moves& moves) const;
    /// Whether all media data moves by the same distance.
    [[nodiscard]] bool mediaMovesAsOne(const Moves& moves) const;
    /// Whether the tree still describes the file, and no movie fragment moves; says why not.
    [[nodiscard]] bool mayMove(const Moves& moves) const;
    [[nodiscard]] std::wstring newFilePath() const;
    /// Prints the line of a failed rewrite; false.
    bool rewriteFailed(const wchar_t* operation) const;
};

/// Shifts every entry of one chunk-offset table by `change` bytes: an STCO of 32-bit entries or a CO64
/// of 64-bit ones. Only entries that lie within the box are touched. False, with nothing written, when
/// an entry would leave its range.
template <class Table, class Entry>
bool modifyIndex(BinFile& file, BOX& table, long long change);

extern template bool modifyIndex<STCO, unsigned int>(BinFile&, BOX&, long long);
extern template bool modifyIndex<CO64, unsigned long long>(BinFile&, BOX&, long long);

} // namespace MP4
