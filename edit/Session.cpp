// SPDX-License-Identifier: MIT
#include "Session.h"

#include <cstdio>
#include <new>
#include <utility>

#include "Input.h"

namespace edit {

Session::Session(const Options& options_, std::string file)
    : options(options_), name(std::move(file)), path(widened(name)) {}

Status Session::end(Status status, std::string text) {
    verdict = status;
    words = std::move(text);
    return status;
}

Status Session::done(const std::function<std::string()>& words_) try {
    altered = true;
    end(Status::done, {});
    words = words_();
    return verdict;
} catch (const std::bad_alloc&) {
    return verdict;
}

Status Session::nothingToDo(const std::string& why) {
    return end(Status::done, "nothing to do, " + why);
}

Status Session::refused(std::string text) {
    return end(Status::refused, std::move(text));
}

Status Session::notThere(std::string text) {
    return end(Status::notThere, std::move(text));
}

Status Session::found(std::string text) {
    return end(Status::found, std::move(text));
}

Status Session::failed(const std::string& tried) {
    const std::string reason = Messages::reason();
    return end(Status::failed, reason.empty() ? tried : tried + ": " + reason);
}

Status Session::failedFor(std::string reason) {
    return end(Status::failed, std::move(reason));
}

bool Session::print(std::string_view text) {
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
}

} // namespace edit
