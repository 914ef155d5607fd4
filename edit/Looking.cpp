// What a recording is, what it carries, how it is laid out, and whether it is sound.

#include <CLI/CLI.hpp>

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
const MP4::Container& attached(Session& session, bool keepContents) {
    MP4::Container& container = session.container;
    container.keepContents = keepContents;
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
           : whole  ? session.done("")
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
    app.add_option("-o,--output", options.output, "page to be written (-: standard output)")->required();
    app.add_flag("--force", options.force, "replace it if it is there");
}

Work info(const Options& options) {
    return [json = options.json](Session& session) {
        const Facts facts = factsOf(attached(session, false));
        return told(session, Session::print(json ? jsonOf(facts) : textOf(facts)), facts.whole);
    };
}

Work dump(const Options& options) {
    return [json = options.json](Session& session) {
        const MP4::Container& container = attached(session, true);
        if (json) {
            return told(session, writeTree(container, Session::print), !container.incomplete());
        }
        const Messages::Printed printed;
        container.dump();
        return told(session, true, !container.incomplete());
    };
}

Work picture(const Options&) {
    return [](Session& session) {
        const MP4::Container& container = attached(session, false);
        return writeResult(session, [&](const Sink& sink) { return writePicture(container, sink); });
    };
}

Work check(const Options&) {
    return [](Session& session) {
        bool readable = false;
        const std::vector<Finding> findings = findingsIn(attached(session, false), readable);
        bool written = true;
        for (const Finding& finding : findings) {
            written = written && Session::print(session.name + ":" + std::to_string(finding.offset) + ": " +
                                                finding.text + "\n");
        }
        if (!written || !readable) {
            return told(session, written, readable);
        }
        return findings.empty() ? session.done("clean")
                                : session.found(grouped(findings.size()) +
                                                (findings.size() == 1 ? " finding" : " findings"));
    };
}

Work repair(const Options& options) {
    return [dryRun = options.dryRun](Session& session) {
        const Repair result = takeLeftoversAway(session.container, dryRun);
        std::string words;
        for (const std::string& what : result.taken) {
            words += (words.empty() ? "" : "; ") + what + (dryRun ? " would be taken away" : " taken away");
        }
        for (const std::string& what : result.left) {
            words += (words.empty() ? "" : "; ") + what + " left as it is";
        }
        if (!result.done) {
            return session.failed(words.empty() ? "could not be repaired" : words);
        }
        return words.empty() ? session.nothingToDo("nothing is left over in it") : session.done(words);
    };
}

} // namespace edit
