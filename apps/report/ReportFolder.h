#pragma once

#include <csignal>
#include <filesystem>
#include <string>

#include "FilesInUse.h"

namespace keldaReport {

/// Makes a report's folder, if there is none yet. To be called before there is something to report:
/// what would keep a report from being written is found now.
///
/// Throws std::runtime_error with the folder and the reason when it can't be written, or gnuplot is
/// missing.
void prepare(const std::string& folder);

/// The files of a report in a folder, as outputs.
///
/// Throws FileConflict when one of them is read or written otherwise.
void addPages(keldaFiles::FilesInUse& files, const std::string& folder);

/// A report that is being written, in a folder in the report's own. What ends a program (SIGINT,
/// SIGTERM, SIGHUP) waits until it is done, some seconds.
class ReportDraft
{
public:
    /// Throws std::runtime_error with the folder and the reason when it can't be written.
    explicit ReportDraft(const std::string& folder);
    ~ReportDraft();
    ReportDraft(const ReportDraft&) = delete;
    ReportDraft& operator=(const ReportDraft&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }

    /// Moves what has been written into the report's folder, the page last.
    ///
    /// Throws std::runtime_error with the path and the reason when that can't be.
    void publish() const;

private:
    std::filesystem::path m_folder;
    std::filesystem::path m_path;
    sigset_t m_previous{};
};

/// Has gnuplot run a script in its folder.
///
/// Throws std::runtime_error with what gnuplot has to say when it fails.
void runGnuplot(const std::filesystem::path& folder, const std::string& script);

} // namespace keldaReport
