#pragma once

#include <cstdlib>
#include <memory>
#include <string>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "support/faultyPcm/Control.h"

namespace testSupport::faultyPcm {

struct UnmapControl
{
    void operator()(Control* control) const { munmap(control, sizeof(Control)); }
};
using ControlPointer = std::unique_ptr<Control, UnmapControl>;

/// The folder of the sound card; empty where there is none.
inline std::string folderInUse()
{
    const char* folder = std::getenv(folderVariable);
    return folder == nullptr ? "" : folder;
}

/// Shares the control of a folder, which is made (all zero) when it does not exist.
inline ControlPointer mapControl(const std::string& folder)
{
    if (folder.empty()) {
        return nullptr;
    }
    const int file = open((folder + "/control").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0) {
        return nullptr;
    }
    void* memory = MAP_FAILED;
    if (ftruncate(file, sizeof(Control)) == 0) {
        memory = mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    }
    close(file);
    return ControlPointer(memory == MAP_FAILED ? nullptr : static_cast<Control*>(memory));
}

} // namespace testSupport::faultyPcm
