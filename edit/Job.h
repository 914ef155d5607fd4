// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "MP4Container.h"
#include "Messages.h"
#include "Options.h"

namespace edit {

/// How a command ended, on one file and as a whole: the exit status.
enum class Status {
    done = 0,           ///< all is as asked for
    failed = 1,         ///< the file is as it was
    wrongArguments = 2, ///< no file was touched
    refused = 3,        ///< something else is there already
    notThere = 4,       ///< what was to be got or removed
    found = 5,          ///< check has found something
};

/// Ends a command, or its work on one file, with a verdict other than done.
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string& text, Status status_ = Status::failed)
        : std::runtime_error(text), status(status_) {}

    const Status status;
};

/// Malformed input, told before any file is touched.
class WrongArguments : public Failure {
public:
    explicit WrongArguments(const std::string& text) : Failure(text, Status::wrongArguments) {}
};

/// Throws Failure unless it is done: what was tried, and why it failed, as the toolkit or the system told it.
/// Where it is done nothing is thrown, for lack of memory either: a text put together stands ahead of
/// the deed.
void demand(bool done, std::string_view tried);

/// The work of one command on one file: the container, and what there is to be said in the end.
///
/// Work that returns has said done(), nothingToDo() or found(); any other end is a Failure that it throws.
/// The Runner prints the text behind the name of the file, on standard error, once everything is in place.
class Job {
public:
    Job(const Options& options, std::string file);

    const Options& options;
    const std::string name;   ///< the file as it was given
    const std::wstring path;  ///< the same for the library: the file that is looked at, or changed
    MP4::Container container; ///< claimed, and read whole, when the work of an edit begins

    /// It is done; `words` says what the file is like now. If memory has no room for that, it is done without
    /// a word.
    void done(const std::function<std::string()>& words);
    /// Nothing was to be done: why.
    void nothingToDo(const std::string& why);
    void found(const std::string& what);
    /// Something more to be said of what is done.
    void add(const std::function<std::string()>& words);
    void ended(const Failure& failure);

    /// Writes a piece of a result to standard output; false once that has failed.
    static bool print(std::string_view text);
    /// Prints a line of what a dry run would do, as the toolkit prints those of its edits.
    void plan(const std::string& what) const;

    [[nodiscard]] Status status() const { return verdict; }
    /// Whether the file is another one now.
    [[nodiscard]] bool changed() const { return altered; }
    [[nodiscard]] const std::string& text() const { return words; }

private:
    Status verdict = Status::failed;
    bool altered = false;
    std::string words;
};

} // namespace edit
