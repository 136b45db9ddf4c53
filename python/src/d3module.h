// Pieces shared by the source files of the d3 Python module: the handle to
// the SDK's session, raising SDK failures, and what each file binds.
#pragma once

#include <pybind11/pybind11.h>

#include "d3_sdk/DeviceManager.h"

namespace d3py {

namespace py = pybind11;

// The SDK keeps one camera session per process; a Device is a handle to it
// and holds nothing itself.
struct Device {};

inline DeviceManager& sdk() { return DeviceManager::GetInstance(); }

// Raises d3.Error(code, text) unless rc is SUCCESS. Needs the GIL.
void check(ReturnCode rc);
// Raises d3.Error(code, text) with a text of the caller's. Needs the GIL.
[[noreturn]] void raise(ReturnCode rc, const std::string& text);

// Runs one SDK call without the GIL, since calls wait for the camera and the
// link-lost callback needs the GIL to run, then raises on failure.
template <typename Call>
void call(Call&& sdkCall) {
    ReturnCode rc;
    {
        py::gil_scoped_release nogil;
        rc = sdkCall();
    }
    check(rc);
}

void bindErrors(py::module_& m);
void bindTypes(py::module_& m);
void bindSession(py::module_& m, py::class_<Device>& device);
void bindParameters(py::class_<Device>& device);
void bindFrames(py::module_& m, py::class_<Device>& device);
void bindExtensions(py::module_& m, py::class_<Device>& device);

}  // namespace d3py
