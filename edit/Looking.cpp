// SPDX-License-Identifier: MIT
// What a recording is, what it carries, how it is laid out, and whether it is sound.

#include <CLI/CLI.hpp>

#include "Brisa/BrisaConsole.h"
#include "Check.h"
#include "Commands.h"
#include "Info.h"
#include "Input.h"
#include "Messages.h"
#include "Output.h"
#include "Picture.h"
#include "Tree.h"

namespace edit {

namespace {

/// Reads the file's tree; throws Failure if it is no MP4 file.
const MP4::Container& attached(Job& job) {
    MP4::Container& container = job.container;
    container.keepContents = false;
    if (!container.attach(job.path)) {
        job.failed("could not be opened");
        throw Failure(job.text());
    }
    if (!looksLikeMp4(container)) {
        throw Failure("is no MP4 file");
    }
    return container;
}

/// Ends a command whose result has been written, for the part of the file that could be read.
Status told(Job& job, bool written, bool whole) {
    return !written ? job.failed("the result could not be written")
           : whole  ? job.done([] { return ""; })
                    : job.failedFor("could not be read whole; boxes may be missing");
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
    return [json = options.json](Job& job) {
        const Facts facts = factsOf(attached(job));
        return told(job, Job::print(json ? jsonOf(facts) : textOf(facts)), facts.whole);
    };
}

Work dump(const Options& options) {
    return [json = options.json](Job& job) {
        job.container.tableTotals = true;
        const MP4::Container& container = attached(job);
        if (json) {
            return told(job, writeTree(container, Job::print), !container.incomplete());
        }
        const Messages::Printed printed;
        container.dump();
        return told(job, !Brisa::Console::hasLostText(), !container.incomplete());
    };
}

Work picture(const Options&) {
    return [](Job& job) {
        const MP4::Container& container = attached(job);
        std::string page; // some MB at most
        const bool whole = writePicture(container, [&page](std::string_view text) {
            page += text;
            return true;
        });
        return writeResult(job, [&](const Sink& sink) { return sink(page) && whole; });
    };
}

Work check(const Options&) {
    return [](Job& job) {
        bool readable = false;
        const std::vector<Finding> findings = findingsIn(attached(job), readable);
        bool written = true;
        for (const Finding& finding : findings) {
            written = written && Job::print(job.name + ":" + std::to_string(finding.offset) + ": " +
                                            finding.text + "\n");
        }
        if (!written || !readable) {
            return told(job, written, readable);
        }
        return findings.empty()
                   ? job.done([] { return "clean"; })
                   : job.found(grouped(findings.size()) + (findings.size() == 1 ? " finding" : " findings"));
    };
}

Work repair(const Options& options) {
    return [dryRun = options.dryRun](Job& job) {
        const Repair result = takeLeftoversAway(job.container, dryRun);
        const auto words = [&] {
            std::string all;
            for (const std::string& what : result.taken) {
                all += (all.empty() ? "" : "; ") + what + (dryRun ? " would be taken away" : " taken away");
            }
            for (const std::string& what : result.left) {
                all += (all.empty() ? "" : "; ") + what + " left as it is";
            }
            return all;
        };
        if (!result.done) {
            return job.failed(result.left.empty() ? "could not be repaired" : words());
        }
        return result.taken.empty() && result.left.empty() ? job.nothingToDo("there is nothing to take away")
                                                           : job.done(words);
    };
}

} // namespace edit
