// SPDX-License-Identifier: MIT
#include "Job.h"

#include <cstdio>
#include <new>
#include <utility>

#include "Input.h"

namespace edit {

Job::Job(const Options& options_, std::string file)
    : options(options_), name(std::move(file)), path(widened(name)) {}

Status Job::end(Status status, std::string text) {
    verdict = status;
    words = std::move(text);
    return status;
}

Status Job::done(const std::function<std::string()>& words_) try {
    altered = true;
    end(Status::done, {});
    words = words_();
    return verdict;
} catch (const std::bad_alloc&) {
    return verdict;
}

Status Job::nothingToDo(const std::string& why) {
    return end(Status::done, "nothing to do, " + why);
}

Status Job::refused(std::string text) {
    return end(Status::refused, std::move(text));
}

Status Job::notThere(std::string text) {
    return end(Status::notThere, std::move(text));
}

Status Job::found(std::string text) {
    return end(Status::found, std::move(text));
}

Status Job::failed(const std::string& tried) {
    const std::string reason = Messages::reason();
    return end(Status::failed, reason.empty() ? tried : tried + ": " + reason);
}

Status Job::failedFor(std::string reason) {
    return end(Status::failed, std::move(reason));
}

bool Job::print(std::string_view text) {
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
}

} // namespace edit
