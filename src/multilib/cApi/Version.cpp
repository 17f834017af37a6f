#include "kelda_audio.h"
#include "miscUtils/TimeValue.h"

const char* kelda_version() noexcept
{
    return KELDA_VERSION;
}

uint64_t kelda_now() noexcept
{
    return miscUtils::getMonotonicRawSysclockTime();
}
