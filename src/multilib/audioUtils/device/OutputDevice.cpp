#include "audioUtils/device/OutputDevice.h"

namespace audioUtils {

OutputDevice::~OutputDevice() = default;

} // namespace audioUtils
