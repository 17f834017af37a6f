#pragma once

// Before any of Highway's headers. SVE's vectors have no size before the program runs, so none can
// be a member, as the kit's sums are: arm64 has NEON for it, always.
#define HWY_DISABLED_TARGETS (HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128)
