#include "audioUtils/detail/DeferredLog.h"

#include <log4cplus/logger.h>

namespace audioUtils::detail {

void appendLines(const std::vector<DeferredLine>& lines) noexcept
{
    for (const DeferredLine& line : lines) {
        try {
            line.logger->forcedLog(line.level, line.text, line.file, line.line, line.function);
        } catch (...) { // NOLINT(bugprone-empty-catch): a full disk must not end the audio
        }
    }
}

} // namespace audioUtils::detail
