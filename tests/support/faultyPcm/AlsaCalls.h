#pragma once

#include "support/faultyPcm/Control.h"

namespace testSupport::faultyPcm {

/// Whose results the calls of this process to libasound return, and where they are counted;
/// nullptr: they go straight through. At first that of the folder in the environment, if any.
void interceptAlsaCalls(Control* control);

} // namespace testSupport::faultyPcm
