// The resamplers against a plain model of their counters, under random calls.

#include <gtest/gtest.h>

#include "audioUtils/resample/ResamplerModel.h"

namespace {

template<typename Class>
void follow()
{
    for (unsigned int seed = 0; seed < 24; ++seed) {
        testSupport::RandomChoices choices(seed);
        resamplerModel::ResamplerAndModel<Class> both(choices, 1 + seed % 3,
                                                      resamplerModel::qualities[seed % 4]);
        for (int i = 0; i < 150; ++i) {
            ASSERT_EQ(both.call(), "") << "seed " << seed << ", call " << i;
        }
    }
}

} // namespace

TEST(ResamplerModel, FloatResamplerFollowsIt)
{
    follow<resamplerModel::FloatClass>();
}

TEST(ResamplerModel, ShortResamplerFollowsItBitForBit)
{
    follow<resamplerModel::ShortClass>();
}
