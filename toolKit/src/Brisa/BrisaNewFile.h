// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Brisa/BrisaFileIO.h"

namespace Brisa {

/// A file under construction: gone with the object unless it took its place or was told to stay.
///
/// Nobody meets half of it under the name that it is for, and nobody's file is touched on the way to
/// it: it is created exclusively, never through a link, and what stands under its own name is removed
/// or renamed only as long as that is this file.
///
/// Thrown is what a callable throws, and what the standard library throws when memory is short or it has no
/// random numbers; the file is gone then. Different objects may be used in different threads.
class NewFile {
public:
    /// Who may read and write it until it adopts something else.
    enum class Access {
        owner, ///< permission bits 0600
        usual  ///< as any new file: 0644 less the umask
    };

    /// Creates a file at `path`. What an earlier run left there, a plain file under no other name,
    /// gives way; for anything else the result is null, with EEXIST. When the system fails to create
    /// it, "open(%ls, 'w') failed.\n" is printed with `path`.
    static std::unique_ptr<NewFile> at(const std::wstring& path, Access access = Access::owner);
    /// Creates a file in the folder of `place` under a name that nobody has: `place`.XXXXXX.part. Null
    /// when that fails, and the same line is printed with `place`.
    static std::unique_ptr<NewFile> beside(const std::wstring& place, Access access = Access::owner);
    /// Writes a file whole or not at all: `content` fills a new one, in mode 0644 less the umask, which
    /// then takes `path`. A plain file that is there keeps what FileIO::adopt() takes over, and is on disk
    /// in its new form before the old one goes; a symbolic link stays, and what it points to is
    /// written. Where that cannot be, because `path` is a device or a pipe, or its folder lets nothing be
    /// renamed, `content` fills what is there, from its start. Prints the line of at() with `path`
    /// when it cannot be written.
    static bool write(const std::wstring& path, const std::function<bool(FileIO&)>& content);
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    [[nodiscard]] FileIO& file() { return handle; }
    [[nodiscard]] const std::wstring& path() const { return name; }

    /// Takes `place` by one rename, in the stead of whatever is there. Before that it adopts `old` if
    /// one is given, is on the disk if `durable`, Watch is asked a last time, and then `lastLook`; when it is
    /// done, the folder is on the disk too, if `durable`. False, with nothing changed, and errno says why.
    bool take(const std::wstring& place, bool durable, const FileIO* old = nullptr,
              const std::function<bool()>& lastLook = {});
    /// The same without an old file and on no disk: false, with EEXIST, where something is at `place`.
    bool takeNew(const std::wstring& place);
    /// Stays under its own name.
    void keep() { temporary = false; }

private:
    NewFile(std::wstring path, Access access);
    static std::unique_ptr<NewFile> created(const std::wstring& path, Access access);
    static std::unique_ptr<NewFile> createdBeside(const std::wstring& place, Access access);
    [[nodiscard]] bool mayTake() const;

    const std::wstring name;
    FileIO handle;
    bool temporary = true;
};

} // namespace Brisa
