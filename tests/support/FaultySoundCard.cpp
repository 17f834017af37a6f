#include "support/FaultySoundCard.h"

#include <fstream>
#include <iterator>
#include <memory>

#include "support/faultyPcm/AlsaCalls.h"

namespace testSupport {

using namespace faultyPcm;

const std::string FaultySoundCard::library = KELDA_ALSA_CALLS_LIBRARY;

namespace {

std::filesystem::path newFolder()
{
    std::string name = (std::filesystem::temp_directory_path() / "kelda-faulty-XXXXXX").string();
    return mkdtemp(name.data());
}

} // namespace

FaultySoundCard::FaultySoundCard() : m_folder(newFolder()), m_control(mapControl(m_folder))
{
    const std::filesystem::path configuration = m_folder / "asound.conf";
    std::ofstream(configuration) << "</usr/share/alsa/alsa.conf>\n"
                                    "pcm_type.kelda_faulty.lib \"" KELDA_FAULTY_PCM_LIBRARY "\"\n"
                                    "pcm.faulty.type kelda_faulty\n"
                                    "ctl_type.kelda_faulty.lib \"" KELDA_FAULTY_PCM_LIBRARY "\"\n"
                                    "ctl.faulty.type kelda_faulty\n";
    setenv("ALSA_CONFIG_PATH", configuration.c_str(), 1);
    setenv(folderVariable, m_folder.c_str(), 1);
    interceptAlsaCalls(m_control.get());
}

FaultySoundCard::~FaultySoundCard()
{
    interceptAlsaCalls(nullptr);
    unsetenv(folderVariable);
    unsetenv("ALSA_CONFIG_PATH");
    std::filesystem::remove_all(m_folder);
}

void FaultySoundCard::renew()
{
    std::construct_at(m_control.get());
    for (const char* const name : {playedFile, droppedFile}) {
        std::filesystem::remove(m_folder / name);
    }
}

void FaultySoundCard::setResult(Call call, int result)
{
    m_control->results[static_cast<std::size_t>(call)] = result;
}

std::uint32_t FaultySoundCard::count(Call call) const
{
    return m_control->counts[static_cast<std::size_t>(call)];
}

std::int64_t FaultySoundCard::value(Call call) const
{
    return m_control->values[static_cast<std::size_t>(call)];
}

std::vector<std::string> FaultySoundCard::takeCalls()
{
    std::vector<std::string> names;
    const std::uint32_t count = m_control->numSequence.exchange(0);
    for (std::uint32_t i = 0; i < count && i < m_control->sequence.size(); ++i) {
        names.emplace_back(callNames[static_cast<std::size_t>(m_control->sequence[i].load())]);
    }
    return names;
}

std::string FaultySoundCard::bytesOf(const std::string& name) const
{
    std::ifstream file(m_folder / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace testSupport
