#include "ScenarioFiles.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <stdexcept>

namespace keldaLab {

namespace {

namespace fs = std::filesystem;

/// Where scenarios are, seen from the program: as it was installed, or built in a source tree.
/// Either may have been moved as a whole.
fs::path folder()
{
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error).parent_path();
    for (const char* const place : {KELDA_SCENARIOS_FROM_PROGRAM, "../../lab/scenarios"}) {
        fs::path candidate = program / place;
        if (fs::is_directory(candidate, error)) {
            return candidate;
        }
    }
    return {};
}

} // namespace

std::vector<std::string> scenarioNames()
{
    std::vector<std::string> names;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder(), error)) {
        if (entry.path().extension() == ".json") {
            names.push_back(entry.path().stem());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string scenarioPath(const std::string& nameOrPath)
{
    std::error_code error;
    if (nameOrPath.find('/') != std::string::npos ||
        (fs::exists(nameOrPath, error) && !fs::is_directory(nameOrPath, error))) {
        return nameOrPath;
    }
    const std::vector<std::string> names = scenarioNames();
    if (std::find(names.begin(), names.end(), nameOrPath) != names.end()) {
        return folder() / (nameOrPath + ".json");
    }
    std::string known;
    for (const std::string& name : names) {
        known += (known.empty() ? "" : ", ") + name;
    }
    throw std::runtime_error(nameOrPath +
                             ": no such file, and no scenario of that name; there are " +
                             (known.empty() ? "none" : known));
}

} // namespace keldaLab
