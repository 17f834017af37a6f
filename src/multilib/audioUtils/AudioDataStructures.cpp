#include "audioUtils/AudioDataStructures.h"

namespace audioUtils {

const DefaultChannelMask getDefaultChannelMask{};

const std::string& pcmAudioType()
{
    static const std::string type = "pcm";
    return type;
}

const std::string& dsdAudioType()
{
    static const std::string type = "dsd";
    return type;
}

const std::string& opaqueAudioType()
{
    static const std::string type = "opaque";
    return type;
}

} // namespace audioUtils
