// SPDX-License-Identifier: MIT
//
// Modes and groups asked for by names that there are not, and into records that are not there.
#include "presetdb/table.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/pim_json.h"

namespace {

using namespace vexil_test;

const std::string kMissing = "[__presetdb_get_hdrmode][223]PresetDB parsing fail!!\n";

TEST(PresetDbModes, OnlyTheThreeNamesAreModes)
{
	const Json preset =
		json("{'SDR': {}, 'HDR': {}, 'sdr': {}, 'Input': {}, 'Colortuning': {}}");
	presetdb_hdr_mode mode;
	std::memset(&mode, 0x5A, sizeof mode);
	const presetdb_hdr_mode before = mode;
	for (const char *name : {"HDR", "sdr", "SDR2", "Input", "Colortuning", ""}) {
		EXPECT_FALSE(__presetdb_get_hdrmode(preset.get(), &mode, name)) << name;
		EXPECT_EQ(take_log(), kMissing) << name;
	}
	EXPECT_FALSE(__presetdb_get_hdrmode(preset.get(), &mode, nullptr));
	EXPECT_EQ(take_log(), kMissing);
	EXPECT_EQ(std::memcmp(&mode, &before, sizeof mode), 0);
}

TEST(PresetDbModes, NoRecordIsFilled)
{
	const Json preset = json("{'SDR': {}, 'Input': {}}");
	EXPECT_FALSE(__presetdb_get_hdrmode(preset.get(), nullptr, "SDR"));
	EXPECT_EQ(take_log(), kMissing);
	EXPECT_FALSE(__presetdb_get_IOinfo(preset.get(), nullptr, "Input"));
	EXPECT_EQ(take_log(), "");
}

} // namespace
