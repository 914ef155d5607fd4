// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "MP4Container.h"
#include "MP4Plan.h"

// What the edits of a container share; for the container sources only.

namespace MP4 {

/// Reads `size` bytes at `offset`; whether all of them were there.
bool readAt(BinFile& file, uint64_t offset, void* bytes, uint64_t size);
/// Whether a box with a 32-bit size can hold `bytes` of content; says so on standard error if not.
bool fitsBox(uint64_t bytes);
/// Whether a top-level box is a spatial-data block.
bool isSpatial(const BOX& box);
/// The movie's `ZDT9` box, if it has room for its record; null if there is none.
const BOX* recordOfSound(const NestedBox& root);
/// Puts the XML into the video track, as its last child or in the place of what a track has.
void putSpherical(const Container& container, Plan& plan, const std::string& xml);
/// Adds the chunk offsets of a spatial-data block.
void pointersOfBlock(const NestedBox& block, Pointers& pointers);
/// Tells on standard error why an edit of the file is refused or failed; false.
bool refuse(const std::wstring& path, const Objection& reason);

/// A file that is open for reading and locked.
struct Container::Held {
    explicit Held(const std::wstring& path_) : path(path_), file(path, 'r') {}

    const std::wstring path;
    Brisa::FileIO file;
};

/// A container's file, for one edit alone: locked until the object goes, and just as it was parsed.
class Claim {
public:
    explicit Claim(Container& container);
    ~Claim();
    Claim(const Claim&) = delete;
    Claim& operator=(const Claim&) = delete;

    /// Why it is not to be had; empty if it is.
    [[nodiscard]] const Objection& objection() const { return reason; }
    /// The file, for reading.
    [[nodiscard]] Brisa::FileIO& file() const;
    /// Whether the path still names this very file, to which nobody has written.
    [[nodiscard]] bool isUntouched() const;
    /// Lets another edit have it.
    void letGo() { own.reset(); }
    /// Runs the work on the same file, open for reading and writing; whether the path named it before and
    /// after, and the work succeeded.
    bool update(const std::function<bool(Brisa::FileIO&)>& work);

private:
    Container& container;
    std::unique_ptr<Container::Held> own;
    Objection reason;
};

/// Changes to a file as it stands: what they overwrite or add is taken back unless they are kept.
class Attempt {
public:
    explicit Attempt(Brisa::FileIO& file);
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;
    ~Attempt();

    /// One write over what is there.
    bool overwrite(uint64_t offset, const ByteArray& bytes);
    /// The same over the type of the box at `offset`.
    bool retype(uint64_t offset, uint32_t tag);
    /// Remembers what is there, for what is going to be written over it.
    bool remember(uint64_t offset, uint64_t size);
    void keep() { kept = true; }

private:
    struct Old {
        uint64_t offset;
        ByteArray bytes;
    };
    Brisa::FileIO& file;
    const uint64_t length;
    std::vector<Old> overwritten;
    bool kept = false;
};

/// A box on its way into a file. Until it is there its type is `free`, so that every reader passes over it.
struct NewBox {
    uint64_t size;
    uint32_t type;
    std::function<bool(Brisa::FileIO&)> write;         ///< writes all of it, of the type `free`
    std::function<bool(Attempt&)> beforeItCounts = {}; ///< written ahead of its type
    std::function<bool(Attempt&)> whenItCounts = {};   ///< right behind that; if it fails, all is taken back
};

/// Whether an edit that nothing refuses may write now, see Container::beforeWriting.
bool mayWrite(const Container& container);

/// Why a box at the end of the file would not be found by a reader; empty if it would.
Objection objectionToAppend(const Container& container, BinFile& file);
/// The same of a file that may not be to be had.
Objection objectionToAppend(const Container& container, const Claim& claim);
/// Where it would lie.
uint64_t endForAppend(const Container& container);
/// What a dry run says of it; true.
bool tellAppend(const Container& container, uint64_t size);
/// Puts a box at `place`, where nothing is that counts; on disk when it returns.
bool putBox(Brisa::FileIO& file, Attempt& attempt, uint64_t place, const NewBox& box);
/// Puts a box behind the last one, on disk when it returns.
bool appendBox(Container& container, Brisa::FileIO& file, NewBox box);

/// Whether the plan can be carried out by a new movie box, without moving a byte of media data.
bool canMakeNewMovieBox(const Container& container, const Plan& plan, BinFile& file,
                        const Pointers& pointers);
/// Makes it the plan of that box alone, of the type `free`.
void keepOnlyMovieBox(const Container& container, Plan& plan);
/// Puts it, completed, into a hole or at the end of the file; the old movie box becomes a hole.
bool writeNewMovieBox(Container& container, Claim& claim, const Plan& plan, const Pointers& pointers);

/// Clears the record of where the spatial sound lies, if there is one.
bool forgetSound(const Container& container, Attempt& attempt);

/// Carries out a plan for the whole file: by a new movie box where the container wants that and it can be,
/// else by a rewrite. Prints the line of a failure, and attaches the container again.
bool carryOut(Container& container, const wchar_t* operation, Plan& plan);
/// The same by one write over what stands there; no media data may move.
bool patch(Container& container, const wchar_t* operation, Plan& plan);

/// Attaches the container to what its path names now. Whatever comes of that, the edit ahead of it is done.
void reattach(Container& container);
/// Ends an edit that failed: prints its line and attaches again; false.
bool patchFailed(Container& container, const wchar_t* operation);
bool rewriteFailed(Container& container, const wchar_t* operation);

} // namespace MP4
