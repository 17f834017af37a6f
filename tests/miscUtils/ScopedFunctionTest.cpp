#include "miscUtils/ScopedFunction.h"

#include <string>

#include <gtest/gtest.h>

namespace audioUtils {

// Signatures as this compiler writes them.
template<typename T>
struct Probe
{
    std::string signature;
    std::string called() const { return __PRETTY_FUNCTION__; }
    std::string operator()(int) const { return __PRETTY_FUNCTION__; }
    std::string operator<(const Probe&) const { return __PRETTY_FUNCTION__; }
    Probe() : signature(__PRETTY_FUNCTION__) {}
};

static std::string freeFunction(const std::string&, void (*)(int))
{
    return __PRETTY_FUNCTION__;
}

} // namespace audioUtils

TEST(ScopedFunction, NamesClassAndFunction)
{
    EXPECT_EQ(
        dbglog_scopedFunction("virtual void audioUtils::AlsaOutputDevice::drain()", "AudioUtils"),
        "AlsaOutputDevice::drain");
    EXPECT_EQ(
        dbglog_scopedFunction("virtual bool audioUtils::AlsaOutputDevice::open(const string&, "
                              "audioUtils::PcmFormat, unsigned int) const",
                              "AudioUtils"),
        "AlsaOutputDevice::open");
}

TEST(ScopedFunction, LeavesOutTheNamespaceOnlyWhereTheLoggerRepeatsIt)
{
    EXPECT_EQ(dbglog_scopedFunction("void other::Class::run()", "AudioUtils"), "other::Class::run");
    EXPECT_EQ(dbglog_scopedFunction("void PllDriftCompensator::update(double)", "AudioUtils"),
              "PllDriftCompensator::update");
}

TEST(ScopedFunction, KeepsConstructorsAndDestructors)
{
    EXPECT_EQ(dbglog_scopedFunction("audioUtils::PcmQueue::PcmQueue()", "PcmQueue"),
              "audioUtils::PcmQueue::PcmQueue");
    EXPECT_EQ(dbglog_scopedFunction("virtual audioUtils::AlsaOutputDevice::~AlsaOutputDevice()",
                                    "AudioUtils"),
              "AlsaOutputDevice::~AlsaOutputDevice");
}

TEST(ScopedFunction, LeavesOutReturnTypesOfAnyForm)
{
    EXPECT_EQ(dbglog_scopedFunction("std::map<int, std::vector<long int> > audioUtils::table(int)",
                                    "AudioUtils"),
              "table");
    EXPECT_EQ(dbglog_scopedFunction("const std::string &audioUtils::pcmAudioType()", "AudioUtils"),
              "pcmAudioType");
    EXPECT_EQ(dbglog_scopedFunction("const char* audioUtils::toString(PcmFormat)", "AudioUtils"),
              "toString");
}

TEST(ScopedFunction, UnderstandsTheSignaturesOfThisCompiler)
{
    const audioUtils::Probe<short> probe;
    const auto name = [](const std::string& signature) {
        std::string text = dbglog_scopedFunction(signature, "AudioUtils");
        const std::size_t argument = text.find('<'); // one compiler names the template's argument
        if (argument != std::string::npos && text.find("operator") > argument) {
            text.erase(argument, text.find('>') - argument + 1);
        }
        return text;
    };
    EXPECT_EQ(name(probe.signature), "Probe::Probe");
    EXPECT_EQ(name(probe.called()), "Probe::called");
    EXPECT_EQ(name(probe(1)), "Probe::operator()");
    EXPECT_EQ(name(probe < probe), "Probe::operator<");
    EXPECT_EQ(name(audioUtils::freeFunction("", nullptr)), "freeFunction");
}

TEST(ScopedFunction, KeepsOperatorsWhole)
{
    EXPECT_EQ(dbglog_scopedFunction(
                  "std::ostream& miscUtils::operator<<(std::ostream&, VariantType)", ""),
              "miscUtils::operator<<");
    EXPECT_EQ(dbglog_scopedFunction("bool audioUtils::Range::operator->() const", "AudioUtils"),
              "Range::operator->");
    EXPECT_EQ(dbglog_scopedFunction("audioUtils::Range::operator bool() const", "AudioUtils"),
              "Range::operator bool");
    EXPECT_EQ(dbglog_scopedFunction("operatorKind audioUtils::Range::operator<(int)", "AudioUtils"),
              "Range::operator<");
}

TEST(ScopedFunction, NamesTheFunctionAroundALambda)
{
    EXPECT_EQ(
        dbglog_scopedFunction("audioUtils::Device::open(int)::<lambda(long int)>", "AudioUtils"),
        "Device::open(int)::<lambda(long int)>");
    EXPECT_EQ(dbglog_scopedFunction(
                  "auto audioUtils::Device::open(int)::(anonymous class)::operator()(long) const",
                  "AudioUtils"),
              "Device::open(int)::(anonymous class)::operator()");
}

TEST(ScopedFunction, ReturnsOtherTextsUnchanged)
{
    for (const std::string text :
         {"", "main", "]", ")", "(", "<", "operator", "a b)", "::", "((((", "))))"}) {
        const std::string result = dbglog_scopedFunction(text, "AudioUtils");
        EXPECT_TRUE(text.find(result) != std::string::npos) << text;
    }
    EXPECT_EQ(dbglog_scopedFunction("", "AudioUtils"), "");
    EXPECT_EQ(dbglog_scopedFunction("drain", "AudioUtils"), "drain");
}
