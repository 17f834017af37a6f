#include "Opening.h"

#include <mutex>
#include <utility>
#include <vector>

namespace keldaPlay {

namespace {

std::mutex mutex; // held for moments only
std::vector<const Opening*> openings;

} // namespace

Opening::Opening(std::string name) : m_name(std::move(name))
{
    const std::lock_guard lock(mutex);
    openings.push_back(this);
}

Opening::~Opening()
{
    const std::lock_guard lock(mutex);
    std::erase(openings, this);
}

std::optional<std::string> Opening::current()
{
    const std::lock_guard lock(mutex);
    return openings.empty() ? std::nullopt : std::optional(openings.back()->m_name);
}

} // namespace keldaPlay
