#include "audioUtils/DsdDataStructures.h"

namespace audioUtils {

namespace {

constexpr DsdFormat dsdFormats[] = {DSDU8, DSDU16LE, DSDU16BE, DSDU32LE, DSDU32BE};

} // namespace

std::vector<DsdFormat> getAllDsdFormats()
{
    return {std::begin(dsdFormats), std::end(dsdFormats)};
}

int getNumBytesForFormat(DsdFormat format)
{
    switch (format) {
    case DSDU8:
        return 1;
    case DSDU16LE:
    case DSDU16BE:
        return 2;
    case DSDU32LE:
    case DSDU32BE:
        return 4;
    }
    return 0;
}

bool fromString(DsdFormat& out, const std::string& name)
{
    for (const DsdFormat format : dsdFormats) {
        if (name == toString(format)) {
            out = format;
            return true;
        }
    }
    return false;
}

const char* toString(DsdFormat format)
{
    switch (format) {
    case DSDU8:
        return "DSDU8";
    case DSDU16LE:
        return "DSDU16LE";
    case DSDU16BE:
        return "DSDU16BE";
    case DSDU32LE:
        return "DSDU32LE";
    case DSDU32BE:
        return "DSDU32BE";
    }
    return "<unknown>";
}

} // namespace audioUtils
