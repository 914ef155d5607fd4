// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Commands.h"

namespace edit {

/// Carries out one command on all its files: each is tried, and each verdict told with the file's name.
class Runner {
public:
    Runner(const Command& command, const Options& options);

    /// The exit status: the worst one of all files.
    int run();

private:
    void runOn(Job& job);
    [[nodiscard]] int interrupted(const std::string& name) const;
    void work(Job& job);
    void edit(Job& job, const std::wstring& path);
    void editTo(const std::string& output, Job& job);
    void tell(const Job& job) const;
    void tell(const std::string& name, const char* text) const;

    const Command& command;
    Options options;
    Work chosen;
};

} // namespace edit
