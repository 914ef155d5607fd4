// SPDX-License-Identifier: MIT
// What a recording is, what it carries, how it is laid out, and whether it is sound.

#include <CLI/CLI.hpp>

#include "Boxes.h"
#include "Brisa/BrisaConsole.h"
#include "Check.h"
#include "Commands.h"
#include "Info.h"
#include "Leftovers.h"
#include "Messages.h"
#include "Output.h"
#include "Picture.h"
#include "SideFile.h"
#include "Tree.h"

namespace edit {

namespace {

/// Ends a command whose result has been written, for the part of the file that could be read.
void told(Job& job, bool written, bool whole) {
    demand(written, "the result could not be written");
    if (!whole) {
        throw Failure("could not be read whole; boxes may be missing");
    }
    job.done([] { return ""; });
}

/// What repair would do, or has done, in one line.
std::string words(const Repair& repair) {
    std::string all;
    for (const std::string& what : repair.taken) {
        all += (all.empty() ? "" : "; ") + what + ", taken away";
    }
    for (const std::string& what : repair.left) {
        all += (all.empty() ? "" : "; ") + what + ", left as it is";
    }
    return all;
}

} // namespace

void jsonArgument(CLI::App& app, Options& options) {
    app.add_flag("--json", options.json, "as JSON, one object a file");
}

void dumpArguments(CLI::App& app, Options& options) {
    fileArgument(app, options);
    jsonArgument(app, options);
}

void pictureArguments(CLI::App& app, Options& options) {
    fileArgument(app, options);
    outputOption(app, options, "page to be written (-: standard output)")->required();
}

Work info(const Options& options) {
    return {[json = options.json](Job& job) {
        const Facts facts = factsOf(attached(job));
        told(job, Job::print(json ? jsonOf(facts) : textOf(facts)), facts.whole);
    }};
}

Work dump(const Options& options) {
    return {[json = options.json](Job& job) {
        job.container.tableTotals = true;
        const MP4::Container& container = attached(job);
        if (json) {
            return told(job, writeTree(container, Job::print), !container.incomplete());
        }
        const Messages::Printed printed;
        container.dump();
        told(job, !Brisa::Console::hasLostText(), !container.incomplete());
    }};
}

Work picture(const Options& options) {
    demandOther(options.files.front(), options.output);
    return {[](Job& job) {
        const MP4::Container& container = attached(job);
        std::string page; // some MB at most
        const bool whole = writePicture(container, [&page](std::string_view text) {
            page += text;
            return true;
        });
        writeResult(job, [&](const Sink& sink) { return sink(page) && whole; });
    }};
}

Work check(const Options&) {
    return {[](Job& job) {
        bool readable = false;
        const std::vector<Finding> findings = findingsIn(attached(job), readable);
        bool written = true;
        for (const Finding& finding : findings) {
            written = written && Job::print(job.name + ":" + std::to_string(finding.offset) + ": " +
                                            finding.text + "\n");
        }
        if (!written || !readable || findings.empty()) {
            told(job, written, readable);
            return job.add([] { return "clean"; });
        }
        job.found(grouped(findings.size()) + (findings.size() == 1 ? " finding" : " findings"));
    }};
}

Work repair(const Options&) {
    return {[](Job& job) {
        bool readable = false;
        const Repair found = repairOf(job.container, readable);
        demand(readable, "could not be read whole");
        if (found.taken.empty()) {
            return job.nothingToDo(found.left.empty() ? "there is nothing to take away" : words(found));
        }
        if (job.options.dryRun) {
            for (const std::string& what : found.taken) {
                job.plan("take away " + what);
            }
        }
        demand(carryOut(found, job.container), "could not be repaired");
        job.done([&] { return words(found); });
    }};
}

} // namespace edit
