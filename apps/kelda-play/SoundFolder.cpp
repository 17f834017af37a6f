#include "SoundFolder.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>
#include <stdexcept>

#include <sndfile.h>

#include "NaturalOrder.h"

namespace keldaPlay {

namespace fs = std::filesystem;

namespace {

std::vector<fs::directory_entry> entriesOf(const fs::path& folder)
{
    std::vector<fs::directory_entry> entries;
    try {
        for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
            if (!entry.path().filename().string().starts_with('.')) {
                entries.push_back(entry);
            }
        }
    } catch (const fs::filesystem_error& error) {
        throw std::runtime_error(folder.string() + ": " + error.code().message());
    }
    const auto name = [](const fs::directory_entry& entry) {
        return entry.path().filename().string();
    };
    std::ranges::sort(entries, isNaturallyLess, name);
    return entries;
}

void addFiles(std::vector<std::string>& files, const fs::path& folder)
{
    for (const fs::directory_entry& entry : entriesOf(folder)) {
        std::error_code vanished; // is no file any more
        if (entry.is_directory(vanished) && !entry.is_symlink(vanished)) {
            addFiles(files, entry.path());
        } else if (entry.is_regular_file(vanished)) {
            files.push_back(entry.path().string());
        }
    }
}

std::string lowerCase(std::string text)
{
    std::ranges::transform(text, text.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::set<std::string> soundExtensions()
{
    std::set<std::string> extensions = {"aif", "dff", "dsf", "mp3", "oga", "opus", "snd", "wave"};
    int count = 0;
    sf_command(nullptr, SFC_GET_FORMAT_MAJOR_COUNT, &count, sizeof(count));
    for (SF_FORMAT_INFO info{}; info.format < count; ++info.format) {
        SF_FORMAT_INFO major = info;
        if (sf_command(nullptr, SFC_GET_FORMAT_MAJOR, &major, sizeof(major)) == 0) {
            extensions.insert(major.extension);
        }
    }
    extensions.erase("raw"); // which nothing tells the format of
    return extensions;
}

} // namespace

std::vector<std::string> filesIn(const std::string& folder)
{
    std::vector<std::string> files;
    addFiles(files, folder);
    return files;
}

bool hasSoundExtension(const std::string& path)
{
    static const std::set<std::string> known = soundExtensions();
    const std::string extension = lowerCase(fs::path(path).extension().string());
    return extension.size() > 1 && known.contains(extension.substr(1));
}

} // namespace keldaPlay
