// SPDX-License-Identifier: MIT
// What a recording tells of its pictures.

#include <CLI/CLI.hpp>

#include "Boxes.h"
#include "Commands.h"
#include "MP4Box_avcc.h"

namespace edit {

void rangeArgument(CLI::App& app, Options& options) {
    app.add_option("RANGE", options.value, "on or off")->check(CLI::IsMember({"on", "off"}))->required();
}

Work fullRange(const Options& options) {
    return {[wanted = options.value](Job& job) {
        MP4::Container& container = job.container;
        const MP4::AVCC* record = nullptr;
        findIn(container, "moov.trak.mdia.minf.stbl.stsd.avc1.avcC", [&record](MP4::BOX& box) {
            record = static_cast<const MP4::AVCC*>(&box); // of several tracks the last one, as the edit does
            return false;
        });
        if (record == nullptr) {
            throw Failure("has no H.264 video");
        }
        unsigned char profile = 0;
        bool constrained = false;
        bool full = false;
        if (!record->get_profile_idc_and_constrained_set1_flag(profile, constrained, full)) {
            throw Failure("its H.264 parameter set cannot be read");
        }
        if (constrained && full == (wanted == "on")) {
            return job.nothingToDo("full range is " + wanted);
        }
        demand(container.appendFullRangeAndConstrainedSet1Flag(wanted == "on"),
               "the range could not be changed");
        job.done([&] { return "full range " + wanted; });
    }};
}

} // namespace edit
