// Writes small DSF and DSDIFF files that the fuzz target of DSD files starts with.
//
//   kelda-dsd-corpus fuzz/corpus/dsdFiles

#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "support/DsdFiles.h"

using namespace testSupport;

namespace {

/// With what the target makes its choices of: the last byte tells whether it is read as DSF.
std::string withChoices(const std::string& file, bool isDsf)
{
    return file + std::string(15, '\x03') + (isDsf ? '\0' : '\1');
}

DsdSound mono(std::uint64_t numBits, std::uint32_t bitrate)
{
    DsdSound sound;
    sound.bitrate = bitrate;
    sound.numBits = numBits;
    sound.channels = {std::string((numBits + 7) / 8, '\x69')};
    return sound;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "kelda-dsd-corpus: the folder is missing\n";
        return 2;
    }
    const std::filesystem::path folder = argv[1];
    std::filesystem::create_directories(folder);
    const auto write = [&folder](const std::string& name, const std::string& file, bool isDsf) {
        std::ofstream(folder / name, std::ios::binary) << withChoices(file, isDsf);
    };
    const DsdSound stereo = numberedDsd(100);
    const std::string dsf = dsfFile(stereo, BitOrder::OldestLowest);
    write("lowest.dsf", dsf, true);
    write("highest.dsf", dsfFile(mono(1003, 24'576'000), BitOrder::OldestHighest), true);
    write("truncated.dsf", dsf.substr(0, dsf.size() - 4000), true);
    write("headers.dsf", dsf.substr(0, 92), true);
    write("stereo.dff", dffFile(stereo), false);
    write("mono.dff", dffFile(mono(1000, 11'289'600)), false);
    write("compressed.dff", dffFile(stereo, "DST "), false);
    const std::string dff = dffFile(stereo);
    write("truncated.dff", dff.substr(0, dff.size() - 50), false);
    return 0;
}
