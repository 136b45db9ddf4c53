// d3.Error: every failed SDK call raises it with the SDK's return code and
// the SDK's own text for that code.
#include <pybind11/eval.h>

#include "d3module.h"

namespace d3py {

namespace {

// Owned for the life of the process: the module is never unloaded, and a
// reference dropped after the interpreter has finalised would crash.
PyObject* errorType = nullptr;

const char* const kErrorClass = R"py(
class Error(Exception):
    """A camera SDK call failed.

    code: the SDK's return code, an int (compare with d3.ReturnCode members,
          e.g. err.code == d3.ReturnCode.TIMEOUT).
    text: the SDK's description of that code (d3.return_code_text(code)).
    """

    def __init__(self, code, text):
        super().__init__(code, text)
        self.code = code
        self.text = text

    def __str__(self):
        return f"{self.text} (code {self.code})"
)py";

}  // namespace

void check(ReturnCode rc) {
    if (rc == SUCCESS) return;
    raise(rc, sdk().GetReturnCodeDescriptor(rc));
}

void raise(ReturnCode rc, const std::string& text) {
    // A tuple value makes Python build the exception as Error(code, text).
    PyErr_SetObject(errorType, py::make_tuple(int(rc), text).ptr());
    throw py::error_already_set();
}

void bindErrors(py::module_& m) {
    // Defined in Python so it is an ordinary exception class with attributes
    // and a readable message; its module is d3 since it runs in d3's namespace.
    py::exec(kErrorClass, m.attr("__dict__"));
    errorType = py::object(m.attr("Error")).release().ptr();
    m.def(
        "return_code_text", [](int code) { return sdk().GetReturnCodeDescriptor(ReturnCode(code)); }, py::arg("code"),
        "The SDK's description of a return code (GetReturnCodeDescriptor).");
}

}  // namespace d3py
