// SPDX-License-Identifier: MIT
#include "Job.h"

#include <cstdio>
#include <new>
#include <utility>

#include "Brisa/BrisaFileIO.h"

namespace edit {

void demand(bool done, std::string_view tried) {
    if (!done) {
        const std::string reason = Messages::reason();
        throw Failure(std::string(tried) + (reason.empty() ? "" : ": " + reason));
    }
}

Job::Job(const Options& options_, std::string file)
    : options(options_), name(std::move(file)), path(Brisa::wchar::fromBytes(name)) {}

void Job::done(const std::function<std::string()>& words_) {
    altered = true;
    verdict = Status::done;
    add(words_);
}

void Job::nothingToDo(const std::string& why) {
    verdict = Status::done;
    words = "nothing to do, " + why;
}

void Job::found(const std::string& what) {
    verdict = Status::found;
    words = what;
}

void Job::add(const std::function<std::string()>& words_) try {
    words += words_();
} catch (const std::bad_alloc&) { // what is done is done
}

void Job::ended(const Failure& failure) {
    verdict = failure.status;
    words = failure.what();
}

bool Job::print(std::string_view text) {
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
}

void Job::plan(const std::string& what) const {
    print(name + ": plan: " + what + "\n");
}

} // namespace edit
