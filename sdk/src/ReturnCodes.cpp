#include "d3_sdk/DeviceManager.h"
#include "d3_sdk/Extensions.h"

std::string DeviceManager::GetReturnCodeDescriptor(ReturnCode code) {
    // Codes of the extensions, which the interface's enumeration does not list.
    if (code == d3sdk::FIRMWARE_WRITE_FAILED)
        return "Writing the firmware failed its verification; the camera keeps its old firmware";
    if (code == d3sdk::FLASH_NOT_ERASED) return "The camera's firmware update slot must be erased before writing";
    if (code == d3sdk::REFUSED_BY_RECORDING) return "The camera replays a recording and cannot apply this setting";
    switch (code) {
        case SUCCESS:
            return "Success";
        case FAILED:
            return "The operation failed";
        case INVALID_PARAMETER:
            return "Invalid parameter: the value is out of range or malformed";
        case TIMEOUT:
            return "Timed out waiting for the camera";
        case DEVICE_BUSY:
            return "The camera is busy: another client controls it";
        case NOT_CONNECTED:
            return "No camera is connected";
        case NOT_SUPPORTED:
            return "Not supported by this camera model or in the current mode";
        case FILE_ERROR:
            return "A file could not be read or written";
        case FIRMWARE_REJECTED:
            return "The camera rejected the firmware image";
        case ACCESS_DENIED:
            return "Access denied: wrong access word";
        case PROTOCOL_ERROR:
            return "Malformed or unexpected answer from the camera";
        case DEVICE_NOT_FOUND:
            return "No camera answers to that name";
        case ALREADY_CONNECTED:
            return "A camera is already connected";
        case REFUSED_WHILE_STREAMING:
            return "Not possible while the stream is running; stop the stream first";
        case NETWORK_ERROR:
            return "Network error: the link to the camera is lost";
        case NOT_STREAMING:
            return "The stream is not running";
        case TRIGGER_MODE_REFUSED:
            return "The camera refused the trigger mode";
        case INIT_NETWORK_FAILED:
            return "Could not reach the camera over the network";
        case INIT_FAILED:
            return "Opening the camera failed";
    }
    return "Unknown error code " + std::to_string(int32_t(code));
}
