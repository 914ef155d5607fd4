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
    void gather();
    int runAll();
    void runOn(Job& job);
    [[nodiscard]] Status closeOutput(Status worst) const;
    [[nodiscard]] int interrupted(const std::string& name) const;
    void tell(const Job& job) const;

    const Command& command;
    Options options;
    Work work;
};

} // namespace edit
