#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace Brisa {

/// When true, the open helpers print "processing %ls ...\n" with the path before they call the work.
extern bool FileIO_show_process_file_name;

/// A handle on one file, opened by a wide path.
///
/// The handle is open from its construction to its destruction or not at all. It knows its own
/// position in the file; two handles over one descriptor (see MP4::BinFile) share the system's
/// offset, so code that mixes them seeks explicitly. All offsets and counts are in bytes.
class FileIO {
public:
    /// Opens at once. `mode` is
    /// - 'r': an existing file, read-only (so is any other character);
    /// - 'w': a file for writing, created with permission bits 0644 less the umask, or truncated;
    /// - 'a': an existing file for reading and writing, from offset 0; never created.
    ///
    /// On failure it prints "open(%ls, '%c') failed.\n" and the handle is not open. The path is
    /// not copied: it must outlive the handle. The descriptor is never one of the three standard
    /// ones, so that nothing printed can end up in the file when the process was started without them.
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

    /// Copies `size` bytes from this handle's offset to that of `destination`, in blocks of up to
    /// 65,536 bytes. Ends early where the source ends, or at an error. Returns the bytes written.
    uint64_t copyTo(FileIO& destination, uint64_t size);

    [[nodiscard]] bool isOpen() const { return descriptor != 0; }
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
    /// As many transfers as it takes: returns `count`, or fewer at the end of the file or an error.
    uint64_t readAll(void* buffer, uint64_t count);
    uint64_t writeAll(const void* buffer, uint64_t count);

    /// Moves the offset, from the start or from where it is. On failure prints "seek_set(%lld)
    /// failed - %ls(%d)\n" or "seek_cur(...)" with the offset, the system's text and error number,
    /// and stays where it was; when not open returns false and prints nothing.
    bool seek_set(uint64_t position);
    bool seek_cur(int64_t distance);

    /// Cuts the file to `size` bytes, or extends it with zeros. The offset stays.
    bool truncate(uint64_t size) const;
    /// Returns when everything written to the file is on the disk.
    bool sync() const;
    /// Gives this file the owner, where the process may, and the permission bits of `other`.
    bool adoptPermissions(const FileIO& other) const;
    /// Whether `other` names the file that this handle has open, by whatever link or spelling.
    [[nodiscard]] bool isFileAt(const std::wstring& other) const;
    /// Keeps other handles, of this process or another, from locking the file as long as this one is
    /// open. False when one of them has it; true as well where files cannot be locked.
    [[nodiscard]] bool lock() const;
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
    static bool unlink(const std::wstring& path);
    /// Whether the file can be opened for reading; if not, the line of the constructor is printed.
    static bool exist(const std::wstring& path);
    /// Whether a file can be written under `path` without harm to another: the system gets to see the
    /// whole path, and there is nothing yet, or a plain file under no other name.
    static bool isFree(const std::wstring& path);

protected:
    bool seek(int64_t distance, int whence, const wchar_t* failure);

    /// A second handle on the same descriptor, with the same position.
    FileIO(const FileIO&) = default;

    int descriptor = 0; ///< 0 means not open
    const std::wstring& path;
    int mode;
    uint64_t offset = 0;
    mutable bool faulty = false;
};

/// Asks the system for large pages under a block of memory that is about to be filled from a file:
/// page by page, giving out the memory takes longer than reading the bytes. A hint; contents stay.
void expectBulk(void* memory, uint64_t bytes);

/// Conversions between wide and multibyte strings, by the rules of the process locale.
namespace wchar {

/// Wide to multibyte. The result is min(6 x length, 2048) bytes long: the text, cut where it does
/// not fit or holds a character that the locale cannot express, and zero bytes behind it.
std::string wcs2mbs(const std::wstring& text);

/// Multibyte to wide, at most 2,048 characters, up to the first zero or unconvertible byte.
std::wstring mbs2wcs(const std::string& text);

} // namespace wchar
} // namespace Brisa

namespace MP4 {

/// What a parse may take in. An honest file comes near none of these; they keep a file whose boxes
/// overlap, or whose sizes and counts lie, from costing more than its length is worth.
struct ParseAllowance {
    explicit ParseAllowance(uint64_t length);

    uint64_t headers;  ///< bytes of box headers: at first the file's length, and 512
    uint64_t contents; ///< bytes of payloads, tables and names: at first twice the file's length
    uint64_t zeros;    ///< bytes that stand for contents that a box promises and lacks: at first 16 MiB
    bool keepContents = true; ///< whether contents are kept at all
    bool exceeded = false;    ///< whether there was a header too many

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
