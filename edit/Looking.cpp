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
const MP4::Container& attached(Session& session) {
    MP4::Container& container = session.container;
    container.keepContents = false;
    if (!container.attach(session.path)) {
        session.failed("could not be opened");
        throw Failure(session.text());
    }
    if (!looksLikeMp4(container)) {
        throw Failure("is no MP4 file");
    }
    return container;
}

/// Ends a command whose result has been written, for the part of the file that could be read.
Status told(Session& session, bool written, bool whole) {
    return !written ? session.failed("the result could not be written")
           : whole  ? session.done([] { return ""; })
                    : session.failedFor("could not be read whole; boxes may be missing");
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
    return [json = options.json](Session& session) {
        const Facts facts = factsOf(attached(session));
        return told(session, Session::print(json ? jsonOf(facts) : textOf(facts)), facts.whole);
    };
}

Work dump(const Options& options) {
    return [json = options.json](Session& session) {
        session.container.tableTotals = true;
        const MP4::Container& container = attached(session);
        if (json) {
            return told(session, writeTree(container, Session::print), !container.incomplete());
        }
        const Messages::Printed printed;
        container.dump();
        return told(session, !Brisa::Console::hasLostText(), !container.incomplete());
    };
}

Work picture(const Options&) {
    return [](Session& session) {
        const MP4::Container& container = attached(session);
        std::string page; // some MB at most
        const bool whole = writePicture(container, [&page](std::string_view text) {
            page += text;
            return true;
        });
        return writeResult(session, [&](const Sink& sink) { return sink(page) && whole; });
    };
}

Work check(const Options&) {
    return [](Session& session) {
        bool readable = false;
        const std::vector<Finding> findings = findingsIn(attached(session), readable);
        bool written = true;
        for (const Finding& finding : findings) {
            written = written && Session::print(session.name + ":" + std::to_string(finding.offset) + ": " +
                                                finding.text + "\n");
        }
        if (!written || !readable) {
            return told(session, written, readable);
        }
        return findings.empty() ? session.done([] { return "clean"; })
                                : session.found(grouped(findings.size()) +
                                                (findings.size() == 1 ? " finding" : " findings"));
    };
}

Work repair(const Options& options) {
    return [dryRun = options.dryRun](Session& session) {
        const Repair result = takeLeftoversAway(session.container, dryRun);
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
            return session.failed(result.left.empty() ? "could not be repaired" : words());
        }
        return result.taken.empty() && result.left.empty()
                   ? session.nothingToDo("there is nothing to take away")
                   : session.done(words);
    };
}

} // namespace edit
