// SPDX-License-Identifier: MIT
// The toolkit from Python: pellmor/__init__.py and pellmor/slam.py give these functions their names.

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include "Brisa/BrisaConsole.h"
#include "GPSInfo.h"
#include "Info.h"
#include "MP4Container.h"
#include "SlamMetaData.h"

namespace py = pybind11;
using MP4::Container;
using Path = std::filesystem::path;

namespace {

/// What the toolkit has said on standard error since this thread began its work.
thread_local std::string said;
/// The system's reason, if it had one, when the toolkit first spoke.
thread_local int reason = 0;

/// Becomes an OSError of `number`, or, if that is 0, a pellmor.Error.
struct Failure {
    int number;
    std::string path;
    std::string text;
};

[[noreturn]] void fail(const Path& path, int number = 0) {
    // Some failures are told by a line on standard output alone.
    const bool ofSystem =
        said.empty() || said.find(std::generic_category().message(reason)) != std::string::npos;
    throw Failure{number != 0 || !ofSystem ? number : reason, path.native(),
                  said.empty() ? "failed" : said.substr(0, said.find_last_not_of('\n') + 1)};
}

/// Whether no signal waits whose handler raises (KeyboardInterrupt).
bool uninterrupted(uint64_t /*bytes*/) {
    const py::gil_scoped_acquire hold;
    return PyErr_CheckSignals() == 0;
}

/// Runs the work on a container of the file while other threads of the interpreter run, and raises what
/// went wrong. For an edit the file is locked.
void on(const Path& path, bool edit, const std::function<bool(Container&)>& work) {
    bool done = false;
    {
        const py::gil_scoped_release free;
        said.clear();
        reason = 0;
        const Brisa::Watch watch(uninterrupted);
        Container container;
        container.keepContents = false;
        container.newMovieBox = true;
        const std::wstring name = Brisa::wchar::fromBytes(path.native());
        errno = 0;
        if (!(edit ? container.claim(name) : container.attach(name))) {
            fail(path, errno);
        }
        if (container.incomplete()) {
            Brisa::Console::err(L"MP4: %ls could not be parsed whole.\n", name.c_str());
            fail(path);
        }
        done = work(container);
    }
    if (PyErr_Occurred() != nullptr) {
        throw py::error_already_set();
    }
    if (!done) {
        fail(path);
    }
}

SlamMetaData recordOf(const std::string& name) {
    if (const SlamKind* const kind = SlamKind::named(name)) {
        return SlamMetaData(*kind);
    }
    throw py::value_error("a kind is 'map', 'walk' or 'around', not '" + name + "'");
}

/// Bytes of Python's that are about to be filled, before anybody else sees them.
py::bytes roomFor(uint64_t size) {
    auto room =
        py::reinterpret_steal<py::bytes>(PyBytes_FromStringAndSize(nullptr, static_cast<Py_ssize_t>(size)));
    if (!room) {
        throw py::error_already_set();
    }
    return room;
}

py::bytes getPayload(const Path& path, const std::string& kind) {
    const SlamMetaData record = recordOf(kind);
    std::optional<py::bytes> data;
    on(path, false, [&](Container& container) {
        bool whole = true;
        record.openInMp4(container, [&](const SlamPayload& payload) {
            char* room = nullptr;
            {
                const py::gil_scoped_acquire hold;
                data = roomFor(payload.length());
                room = PyBytes_AS_STRING(data->ptr());
            }
            whole = payload.readTo(room);
        });
        return whole;
    });
    if (!data) {
        throw py::key_error(kind);
    }
    return *data;
}

/// The bytes of any object that has some in one piece, borrowed.
class Bytes {
public:
    explicit Bytes(const py::object& owner) {
        if (PyObject_GetBuffer(owner.ptr(), &view, PyBUF_SIMPLE) != 0) {
            throw py::error_already_set();
        }
    }
    Bytes(const Bytes&) = delete;
    Bytes& operator=(const Bytes&) = delete;
    ~Bytes() { PyBuffer_Release(&view); }

    [[nodiscard]] uint64_t size() const { return static_cast<uint64_t>(view.len); }
    [[nodiscard]] const void* data() const { return view.buf; }

private:
    Py_buffer view{};
};

void putPayload(const Path& path, const std::string& kind, const py::object& data, bool replace) {
    const SlamMetaData record = recordOf(kind);
    const Bytes bytes(data);
    if (bytes.size() == 0 || bytes.size() > SlamMetaData::longestPayload) {
        throw py::value_error("a payload has 1 to " + std::to_string(SlamMetaData::longestPayload) +
                              " bytes");
    }
    on(path, true, [&](Container& container) {
        if (!replace && record.dataExists(container)) {
            fail(path, EEXIST);
        }
        return record.writeToMp4(container, {bytes.data(), bytes.size()}, replace) !=
               SlamMetaData::Put::failed;
    });
}

void removePayload(const Path& path, const std::string& kind) {
    const SlamMetaData record = recordOf(kind);
    bool there = false;
    on(path, true, [&](Container& container) {
        there = record.dataExists(container);
        return !there || record.removeFromMp4(container);
    });
    if (!there) {
        throw py::key_error(kind);
    }
}

void setLocation(const Path& path, double latitude, double longitude, std::optional<double> altitude) {
    if (!(std::abs(latitude) <= 90 && std::abs(longitude) <= 180 && std::isfinite(altitude.value_or(0)))) {
        throw py::value_error("a latitude is from -90 to 90, a longitude from -180 to 180 degrees");
    }
    std::array<char, 400> text{}; // the longest number has 309 digits
    {
        const Brisa::Console::LocaleC numbers;
        const int length = std::snprintf(text.data(), text.size(), "%+011.7f%+012.7f", latitude, longitude);
        const size_t used = static_cast<size_t>(length);
        if (altitude) {
            std::snprintf(text.data() + used, text.size() - used, "%+.3f/", *altitude);
        } else {
            text[used] = '/';
        }
    }
    GPSInfo position;
    position.attachRXYZ(text.data());
    on(path, true, [&](Container& container) { return container.replaceLocations(position); });
}

struct Box {
    std::wstring path;
    uint64_t offset;
    uint64_t size;
};

void list(const MP4::NestedBox& parent, const std::wstring& path, std::vector<Box>& boxes) {
    for (const auto& child : parent.children) {
        boxes.push_back({path + child->type(), child->offset, child->boxSize});
        if (const auto* const nested = MP4::as<MP4::NestedBox>(child.get())) {
            list(*nested, path + child->type() + L'.', boxes);
        }
    }
}

std::vector<Box> boxes(const Path& path) {
    std::vector<Box> all;
    on(path, false, [&](Container& container) {
        list(*container.root, L"", all);
        return true;
    });
    return all;
}

py::object info(const Path& path) {
    std::string json;
    on(path, false, [&](Container& container) {
        json = edit::jsonOf(edit::factsOf(container));
        return true;
    });
    return py::module_::import("json").attr("loads")(json);
}

/// The exceptions, and where the toolkit's words go: none reaches a stream of the host's.
void addFailures(py::module_& module) {
    Brisa::Console::setSink([](Brisa::Console::Stream stream, const std::string& text) {
        reason = reason != 0 ? reason : errno;
        if (stream == Brisa::Console::Stream::err) {
            said += text;
        }
    });
    static const py::exception<Failure> error(module, "Error");
    py::register_exception_translator([](std::exception_ptr thrown) {
        try {
            std::rethrow_exception(thrown);
        } catch (const Failure& failure) {
            if (PyErr_Occurred() != nullptr) {
                return; // the handler of a signal has raised, and the work failed for that
            }
            const py::object path =
                py::reinterpret_steal<py::object>(PyUnicode_DecodeFSDefault(failure.path.c_str()));
            if (failure.number != 0) {
                errno = failure.number;
                PyErr_SetFromErrnoWithFilenameObject(PyExc_OSError, path.ptr());
            } else {
                const py::object text = py::reinterpret_steal<py::object>(PyUnicode_DecodeFSDefaultAndSize(
                    failure.text.data(), static_cast<Py_ssize_t>(failure.text.size())));
                PyErr_SetObject(error.ptr(), text.ptr());
            }
        }
    });
}

} // namespace

PYBIND11_MODULE(_pellmor, module) {
    addFailures(module);
    py::class_<Box>(module, "Box", "One box of a file: its path of types, its offset and size in bytes.")
        .def_readonly("path", &Box::path)
        .def_readonly("offset", &Box::offset)
        .def_readonly("size", &Box::size)
        .def("__repr__", [](const Box& box) {
            return L"Box(path='" + box.path + L"', offset=" + std::to_wstring(box.offset) + L", size=" +
                   std::to_wstring(box.size) + L')';
        });
    module.def("boxes", boxes, py::arg("path"),
               "All boxes of the file, in file order, each ahead of its children.");
    module.def(
        "info", info, py::arg("path"),
        "What a person wants to know of the recording, as a dict: as `pellmor-edit info --json` has it.");
    module.def("set_location", setLocation, py::arg("path"), py::arg("latitude"), py::arg("longitude"),
               py::arg("altitude") = py::none(),
               "Gives the recording a position, in degrees and metres, in the place of the one it has.");
    module.def("slam_get", getPayload, py::arg("path"), py::arg("kind"),
               "The payload of the kind, as bytes. Raises KeyError if there is none.");
    module.def(
        "slam_put", putPayload, py::arg("path"), py::arg("kind"), py::arg("data"), py::arg("replace") = false,
        "Puts a payload in: any object with a contiguous buffer, which is not copied. Raises FileExistsError "
        "if the kind is there already, unless `replace`.");
    module.def("slam_remove", removePayload, py::arg("path"), py::arg("kind"),
               "Takes the payload of the kind out. Raises KeyError if there is none.");
}
