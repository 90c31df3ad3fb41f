#include "tools/gatewayctl/selection.h"

#include "gatewayctl_test.h"

#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

/// With an inventory of three units.
class selecting : public testing::Test {
  protected:
    selecting() {
        std::ofstream(file) << "a 10.0.0.1 north\nb 10.0.0.2:4001 south\n10.0.0.1 10.0.0.3 north\n";
    }
    ~selecting() override {
        std::remove(file.c_str());
    }

    std::string names(const selection_settings &settings) const {
        std::string text;
        for (const inventory_unit &unit : select_units(settings).units) {
            text += unit.name + "=" + unit.address + " ";
        }
        return text;
    }

    const std::string file = testing::TempDir() + "gatewayctl_selection";
};

TEST_F(selecting, takes_all_of_the_inventory_or_of_a_group) {
    EXPECT_EQ(names({{}, file, {}}), "a=10.0.0.1 b=10.0.0.2:4001 10.0.0.1=10.0.0.3 ");
    EXPECT_EQ(names({{}, file, "north"}), "a=10.0.0.1 10.0.0.1=10.0.0.3 ");
    EXPECT_TRUE(select_units({{}, file, "south"}).is_fleet);
}

TEST_F(selecting, takes_those_that_are_named) {
    EXPECT_EQ(names({{"b", "x:1"}, file, {}}), "b=10.0.0.2:4001 x:1=x:1 ");
    EXPECT_EQ(names({{"10.0.0.2:4001"}, file, {}}), "b=10.0.0.2:4001 ") << "by its address";
    EXPECT_EQ(names({{"10.0.0.1:4000"}, file, {}}), "a=10.0.0.1 ") << "with the default port";
    EXPECT_EQ(select_units({{"b"}, file, {}}).inventory.size(), 3U);
    EXPECT_EQ(names({{"10.0.0.1"}, file, {}}), "10.0.0.1=10.0.0.3 ") << "names come first";
    EXPECT_FALSE(select_units({{"b"}, file, {}}).is_fleet);
    EXPECT_TRUE(select_units({{"a", "b"}, file, {}}).is_fleet);
    EXPECT_EQ(names({{"10.0.0.1"}, {}, {}}), "10.0.0.1=10.0.0.1 ") << "without an inventory";
}

TEST_F(selecting, refuses_what_cannot_be_meant) {
    const auto refusal_of = [](const selection_settings &settings) {
        return refusal([&settings] { select_units(settings); });
    };
    EXPECT_EQ(refusal_of({}), "no unit given: use --to HOST[:PORT] or --units FILE");
    EXPECT_EQ(refusal_of({{}, {}, "north"}), "--group needs an inventory: use --units FILE");
    EXPECT_EQ(refusal_of({{"a"}, file, "north"}), "give either --to or --group");
    EXPECT_EQ(refusal_of({{}, file, "west"}), "no unit is in the group \"west\"");
    EXPECT_EQ(refusal_of({{"a", "b", "a"}, file, {}}), "the unit \"a\" is given twice");
    EXPECT_EQ(refusal_of({{"b", "10.0.0.2:4001"}, file, {}}),
              "the unit \"10.0.0.2:4001\" is given twice");
    EXPECT_EQ(refusal_of({{"h", "h:4000"}, {}, {}}), "the unit \"h:4000\" is given twice");
    EXPECT_EQ(refusal_of({{"10.87.33.050"}, {}, {}}),
              "\"10.87.33.050\" is not an IPv4 address: four numbers without leading zeros");
    EXPECT_NE(refusal_of({{"50"}, {}, {}}), "");
    EXPECT_NE(refusal_of({{"0x32:4000"}, {}, {}}), "");
    EXPECT_NE(refusal_of({{"1.2.3.4.5"}, {}, {}}), "");
    EXPECT_EQ(refusal_of({{""}, {}, {}}), "\"\" contains no host");
    EXPECT_EQ(refusal_of({{"a:0"}, {}, {}}), "\"0\" is not a port");
    EXPECT_EQ(refusal_of({{}, "/dev/null", {}}), "/dev/null names no unit");
}

TEST_F(selecting, is_summed_up) {
    EXPECT_EQ(summary_of(select_units({{"b"}, file, {}})), "b");
    EXPECT_EQ(summary_of(select_units({{}, file, {}})), "3 units");
    EXPECT_EQ(summary_of(select_units({{}, file, "south"})), "1 unit");
}

} // namespace
