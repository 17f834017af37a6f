#include "support/VirtualTime.h"

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <thread>

namespace testSupport {

using virtualTime::Shared;

namespace {

std::filesystem::path newFile()
{
    std::string name = (std::filesystem::temp_directory_path() / "kelda-time-XXXXXX").string();
    const int file = mkstemp(name.data());
    if (file < 0 || ftruncate(file, sizeof(Shared)) != 0) {
        throw std::runtime_error("no file for the time: " + name);
    }
    close(file);
    return name;
}

} // namespace

VirtualTime::VirtualTime() : m_file(newFile()), m_shared(virtualTime::map(m_file))
{
    std::construct_at(m_shared.get());
}

VirtualTime::~VirtualTime()
{
    std::filesystem::remove(m_file);
}

void VirtualTime::beginAnew()
{
    m_shared->now = 0;
    m_shared->heldAt = 0;
    m_shared->hasEnded = false;
}

std::string VirtualTime::environment(const std::string& preloaded)
{
    beginAnew();
    return std::string("/usr/bin/env LD_PRELOAD=" KELDA_VIRTUAL_TIME_LIBRARY) +
           (preloaded.empty() ? "" : ":" + preloaded) + " " + virtualTime::fileVariable + "=" +
           m_file.string() + " ASAN_OPTIONS=verify_asan_link_order=0:$ASAN_OPTIONS ";
}

bool VirtualTime::isHeld() const
{
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::minutes(1); // of a busy machine
    while (m_shared->heldAt != m_shared->limit) {
        if (m_shared->hasEnded || std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    return true;
}

} // namespace testSupport
