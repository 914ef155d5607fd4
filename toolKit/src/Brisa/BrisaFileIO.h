// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace Brisa {

/// When true, the open helpers print "processing %ls ...\n" with the path before they call the work.
extern bool FileIO_show_process_file_name;

/// Whom this thread asks whether long work is to go on: a progress bar, or the handler of an interrupt.
///
/// It is asked between the blocks, of at most 8 MiB, of a transfer, and before a new file takes its
/// place. No makes the transfer end early as if the system had failed it, with errno EINTR. Of several
/// objects in nested scopes the innermost counts.
class Watch {
public:
    /// `bytes` were transferred since it was asked last.
    using Hook = std::function<bool(uint64_t bytes)>;

    /// With an empty hook nobody is asked: for what must not end early, such as putting something back.
    explicit Watch(Hook hook);
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    /// Asks, and tells of `bytes` more; true where there is nobody to be asked.
    static bool goOn(uint64_t bytes = 0);
    /// Tells of `bytes` more when a block of them is full, and asks; also as long as the answer is no.
    static bool passed(uint64_t bytes);
    static constexpr uint64_t blockBytes = uint64_t{8} << 20;

private:
    const Hook hook;
    uint64_t pending = 0; ///< bytes that the hook was not told of yet
    bool stopped = false;
    Watch* const outer;
};

/// A handle on one file, opened by a wide path.
///
/// The handle is open from its construction to its destruction or not at all. It knows its own
/// position in the file; two handles over one descriptor (see MP4::BinFile) share the system's
/// offset, so code that mixes them seeks explicitly. All offsets and counts are in bytes.
///
/// A path reaches the system byte for byte as it was given to wchar::fromBytes(), which takes arguments of
/// main() and any std::filesystem::path as they are, in whatever locale. Nothing throws but what a callable
/// throws, and std::bad_alloc. Handles of their own may be used in several threads at once; one handle may
/// not.
class FileIO {
public:
    /// Opens at once. `mode` is
    /// - 'r': an existing plain file, read-only (so is any other character);
    /// - 'w': a file for writing, created with permission bits 0644 less the umask, or truncated; it
    ///   may be a device or a pipe;
    /// - 'a': an existing plain file for reading and writing, from offset 0; never created;
    /// - 'x': a new file for reading and writing; where anything is there already, a link included, it
    ///   fails. Permission bits 0600;
    /// - 'n': the same with those of 'w';
    /// - 'e': an existing plain file for writing, as it is;
    /// - 's': whatever can be read, a pipe or a device as well.
    ///
    /// On failure the handle is not open and errno says why: for 'r', 'a' and 'e' also EISDIR, and
    /// ENOTSUP for what is neither a plain file nor a folder; they never wait for the other end of a
    /// pipe. It prints "open(%ls, '%c') failed.\n", in the modes
    /// 'x', 'n', 'e' and 's' nothing. The path is not
    /// copied: it must outlive the handle, so it cannot be a temporary. The descriptor is never one of the
    /// three standard ones, so that nothing printed can end up in the file when the process was started
    /// without them.
    FileIO(const std::wstring& path, int mode);
    FileIO& operator=(const FileIO&) = delete;
    virtual ~FileIO();

    /// Opens `path` in the helper's mode ('r', 'w' or 'a'), calls `work` once with the handle if
    /// that succeeded, and closes the file. Returns whether the file opened; what the work did
    /// reaches the caller only through what it captures. An empty callable throws
    /// std::bad_function_call.
    static bool open(const std::wstring& path, std::function<void(FileIO&)> work);
    static bool open_w(const std::wstring& path, std::function<void(FileIO&)> work);
    static bool open_a(const std::wstring& path, std::function<void(FileIO&)> work);

    /// Copies `size` bytes from this handle's offset to that of `destination`: within the system where
    /// it can do that fast, else in blocks of 65,536 bytes, or of 1 MiB when they are many. Ends early where
    /// the source ends, at an error, or when Watch says so. Returns the bytes written.
    uint64_t copyTo(FileIO& destination, uint64_t size);

    [[nodiscard]] bool isOpen() const { return descriptor != 0; }
    /// Whether it is a plain file, no folder, pipe or device.
    [[nodiscard]] bool isPlain() const;
    /// The file's size; 0 when not open or when the system cannot tell.
    [[nodiscard]] uint64_t length() const;
    /// Whether the system has failed to serve this handle so far: what was read may be incomplete.
    [[nodiscard]] bool failed() const { return faulty; }
    /// The offset as this handle knows it: advanced by its reads and writes, set by its seeks.
    [[nodiscard]] uint64_t position() const { return offset; }

    /// One transfer by the system (repeated only when a signal interrupts it): returns the bytes
    /// transferred, which may be fewer than asked for, or all ones on an error or when not open.
    uint64_t read(void* buffer, uint64_t count);
    uint64_t write(const void* buffer, uint64_t count);
    /// As many transfers as it takes: returns `count`, or fewer at the end of the file, at an error, or
    /// when Watch says so.
    uint64_t readAll(void* buffer, uint64_t count);
    uint64_t writeAll(const void* buffer, uint64_t count);

    /// Moves the offset, from the start or from where it is. On failure prints "seek_set(%lld)
    /// failed - %ls(%d)\n" or "seek_cur(...)" with the offset, the system's text and error number,
    /// and stays where it was; when not open returns false and prints nothing.
    bool seek_set(uint64_t position);
    bool seek_cur(int64_t distance);

    /// Cuts the file to `size` bytes, or extends it with zeros. The offset stays.
    bool truncate(uint64_t size) const;
    /// What is written from now on begins to go to the disk at once, some MiB at a time: a hint, for a sync()
    /// or flush() that comes soon.
    void flushSoon() { flushing = true; }
    /// Returns when everything written to the file is on the disk, and all that is known of it.
    bool sync() const;
    /// Returns when everything written to the file, and its length, is on the disk.
    bool flush() const;
    /// Gives this file what `model` has, as far as the process may and the file system can: owner and
    /// group, permission bits, access control list, extended attributes. It never becomes accessible
    /// to more than `model` is. False when the system fails otherwise.
    bool adopt(const FileIO& model) const;
    /// Whether `other` names the file that this handle has open, by whatever link or spelling.
    [[nodiscard]] bool isFileAt(const std::wstring& other) const;
    /// Whether `other` is known to name something else; not if the system cannot tell.
    [[nodiscard]] bool isNotFileAt(const std::wstring& other) const;
    /// Keeps other handles, of this process or another, from locking the file as long as this one is
    /// open. False when one of them has had it for `seconds`, or Watch would not wait that long; true
    /// as well where files cannot be locked.
    [[nodiscard]] bool lock(double seconds = 0) const;
    /// Which file it is, how long, and when it was last written to (in the system's ticks, of some
    /// milliseconds): the same as long as none has taken its place and nothing was written.
    struct Identity {
        uint64_t device = 0;
        uint64_t number = 0;
        uint64_t length = 0;
        int64_t seconds = 0; ///< when it was last written to, since 1970
        int64_t nanoseconds = 0;
        bool operator==(const Identity&) const = default;
    };
    [[nodiscard]] Identity identity() const;

    /// rename() and unlink() of the system; true on success, nothing is printed.
    static bool rename(const std::wstring& from, const std::wstring& to);
    /// The same where nothing is to be replaced: false, with EEXIST, when something is at `to`.
    static bool renameNew(const std::wstring& from, const std::wstring& to);
    static bool unlink(const std::wstring& path);
    /// Whether the file can be opened for reading; if not, the line of the constructor is printed.
    static bool exist(const std::wstring& path);
    /// Returns when what a rename changed in the folder of `path` is on the disk; true as well where a
    /// file system has no such operation.
    static bool syncFolderOf(const std::wstring& path);
    /// Whether a file can be written under `path` without harm to another: the system gets to see the
    /// whole path, and there is nothing yet, or a plain file under no other name.
    static bool isFree(const std::wstring& path);

protected:
    bool seek(int64_t distance, int whence, const wchar_t* failure);
    uint64_t copyWithin(FileIO& destination, uint64_t size);
    bool mayGoOn(uint64_t transferred, bool more);
    void written(uint64_t count);

    /// A second handle on the same descriptor, with the same position.
    FileIO(const FileIO&) = default;

    int descriptor = 0; ///< 0 means not open
    const std::wstring& path;
    int mode;
    uint64_t offset = 0;
    bool flushing = false;
    uint64_t flushed = 0; ///< up to where it has begun, while that is so
    mutable bool faulty = false;
};

/// Asks the system for large pages under a block of memory that is about to be filled from a file:
/// page by page, giving out the memory takes longer than reading the bytes. A hint; contents stay.
void expectBulk(void* memory, uint64_t bytes);

/// Conversions between wide and multibyte strings, by the rules of the process locale.
///
/// Arguments and paths are fromBytes() on their way in and toBytes() on their way out: no byte is lost
/// in any locale, as those that it does not know travel as private code points, U+10FF00 + byte.
namespace wchar {

/// For arguments and paths, also a std::filesystem::path, whose bytes it converts to: each character of the
/// locale, and a private code point for each byte that belongs to none, or to one that would not come back as
/// the same bytes.
std::wstring fromBytes(const std::string& bytes);

/// The way back, for paths and messages. What the locale cannot express becomes UTF-8.
std::string toBytes(const std::wstring& text);

/// The same up to the first zero character, in min(6 x length, 2048) bytes: cut behind the last
/// character that fits, and filled up with zeros.
std::string wcs2mbs(const std::wstring& text);

/// For texts out of files: multibyte to wide, at most 2,048 characters, up to the first zero or
/// unconvertible byte.
std::wstring mbs2wcs(const std::string& text);

} // namespace wchar
} // namespace Brisa

namespace MP4 {

/// What a parse may take in. An honest file comes near none of the numbers; they keep a file whose boxes
/// overlap, or whose sizes and counts lie, from costing more than its length is worth.
struct ParseAllowance {
    explicit ParseAllowance(uint64_t length) { renew(length); }

    /// Begins a parse of a file of `length` bytes: all numbers as at first, nothing exceeded.
    void renew(uint64_t length);

    uint64_t headers;  ///< bytes of box headers: at first the file's length, and 512
    uint64_t contents; ///< bytes of payloads, tables and names: at first twice the file's length
    uint64_t zeros;    ///< bytes that stand for what a box promises and lacks: at first 16 MiB
    bool exceeded;     ///< whether the parse had to leave out a header or contents
    /// Whether `uuid` payloads and the entries of sample tables are kept. What is small is kept always:
    /// names, texts, decoder configurations.
    bool keepContents = true;
    /// Whether a sample size table that is not kept is read nevertheless, for the total that a dump shows.
    bool tableTotals = false;

    /// Takes `bytes` for a header; false when they are not left.
    bool takeHeader(uint64_t bytes);
    /// How many of `claimed` bytes may be kept, of which `there` can be read; they are taken.
    uint64_t takeContents(uint64_t claimed, uint64_t there);
};

/// The view of an open file through which boxes are parsed and patched.
///
/// It borrows the descriptor of the handle it is made from, which must outlive it, and adds the
/// bounds of a parse: reads that would pass `limit` yield 0 and do not move the position, so a
/// parser that runs past its box sees zeros instead of the next box's bytes.
class BinFile : public Brisa::FileIO {
public:
    explicit BinFile(Brisa::FileIO& file);
    BinFile(const BinFile&) = delete;
    BinFile& operator=(const BinFile&) = delete;
    ~BinFile() override;

    uint64_t limit = ~uint64_t{0}; ///< file offset at which reading stops
    ParseAllowance allowance;

    /// Big-endian numbers; 0 when they do not fit before the limit.
    uint8_t read8();
    uint16_t read16();
    uint32_t read32();
    uint64_t read64();
    /// Raw bytes; the destination keeps what it held when they do not fit before the limit.
    void readBytes(void* destination, uint64_t count);
    /// Whether `count` bytes fit between the position and the limit.
    [[nodiscard]] bool fits(uint64_t count) const { return count <= limit && position() <= limit - count; }
    /// The bytes that are really there to be read: up to the limit or the end of the file.
    [[nodiscard]] uint64_t available() const;

    /// Writes a big-endian number at the position; whether all of it was written.
    bool write32(uint32_t value);
    bool write64(uint64_t value);

private:
    template <class Integer>
    Integer readNumber();
    template <class Integer>
    bool writeNumber(Integer value);
};

} // namespace MP4
