#include "kelda_audio.h"

const char* kelda_status_text(kelda_status status) noexcept
{
    switch (status) {
    case KELDA_OK:
        return "done";
    case KELDA_UNDERRUN:
        return "done, but the device had run dry or failed";
    case KELDA_INVALID_ARGUMENT:
        return "an argument is a null pointer or out of its range";
    case KELDA_OUT_OF_MEMORY:
        return "there is too little memory";
    case KELDA_NOT_SUPPORTED:
        return "this kind of object can't do that, or a plugin is missing";
    case KELDA_NOT_FOUND:
        return "nothing has this name or code";
    case KELDA_BUFFER_TOO_SMALL:
        return "the text needs more room";
    case KELDA_NOT_CONFIGURED:
        return "the queue is not configured";
    case KELDA_ABORTED:
        return "writing was aborted";
    case KELDA_NOT_OPEN:
        return "the device is not open";
    case KELDA_ALREADY_OPEN:
        return "the device is open already";
    case KELDA_DEVICE_ERROR:
        return "the device can't be opened, configured or asked; the log tells why";
    case KELDA_PREPARE_FAILED:
        return "the device can't be prepared";
    case KELDA_RECOVER_FAILED:
        return "the device did not recover from an error";
    case KELDA_INTERNAL_ERROR:
        return "an error that the library did not expect";
    }
    return "unknown status";
}
