#include "Source.h"

#include <filesystem>
#include <fstream>

#include "AudioFile.h"
#include "DffFile.h"
#include "DopSource.h"
#include "DsfFile.h"
#include "Opening.h"

namespace keldaPlay {

namespace {

/// The first 4 characters of a file that can be read twice.
std::string beginningOf(const std::string& path)
{
    std::string beginning(4, '\0');
    std::error_code unknown;
    if (std::filesystem::is_regular_file(path, unknown)) {
        std::ifstream(path, std::ios::binary).read(beginning.data(), 4);
    }
    return beginning;
}

} // namespace

std::unique_ptr<Source> openSource(const std::string& path)
{
    const Opening opening(path);
    const std::string beginning = beginningOf(path);
    if (beginning == "DSD ") {
        return std::make_unique<DopSource>(std::make_unique<DsfFile>(path));
    }
    if (beginning == "FRM8") {
        return std::make_unique<DopSource>(std::make_unique<DffFile>(path));
    }
    return std::make_unique<AudioFile>(path);
}

} // namespace keldaPlay
