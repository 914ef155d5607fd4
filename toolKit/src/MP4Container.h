#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Brisa/BrisaFileIO.h"
#include "MP4Box.h"

namespace MP4 {

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

private:
    void forgetTree();
};

} // namespace MP4
