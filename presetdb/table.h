// SPDX-License-Identifier: MIT
//
// Groups and members of a preset document: keys, value words, where they go, defaults, and the
// numbers under which what is missing or mistyped is logged. The numbers are part of the messages.
#pragma once

#include <vexil/presetdb.h>

#include "core/span.h"

VEXIL_BEGIN_C

/** The "Input" (any name that begins so) or, by any other name, output format. */
bool __presetdb_get_IOinfo(cJSON *preset, graphic_presetdb_info *info, const char *name);
/** The mode named "SDR", "HDR10" or "HLG". */
bool __presetdb_get_hdrmode(cJSON *preset, presetdb_hdr_mode *mode, const char *name);

VEXIL_END_C

static_assert(sizeof(presetdb_io) == 12 && sizeof(presetdb_hdr_mode) == 16);
static_assert(__builtin_offsetof(presetdb_hdr_mode, gamut_enable) == 6 &&
	      __builtin_offsetof(presetdb_hdr_mode, user_gain) == 8);
static_assert(sizeof(presetdb_rgb_offset) == 2 && sizeof(presetdb_rgb_clipping) == 2);
static_assert(sizeof(presetdb_rgb_gain) == 24 && sizeof(presetdb_brightness) == 24);
static_assert(sizeof(graphic_presetdb_info) == 152);
static_assert(__builtin_offsetof(graphic_presetdb_info, output) == 12 &&
	      __builtin_offsetof(graphic_presetdb_info, hue) == 24);
static_assert(__builtin_offsetof(graphic_presetdb_info, sdr) == 48 &&
	      __builtin_offsetof(graphic_presetdb_info, hlg) == 80);
static_assert(__builtin_offsetof(graphic_presetdb_info, rgb_offset) == 96 &&
	      __builtin_offsetof(graphic_presetdb_info, rgb_clipping) == 98);
static_assert(__builtin_offsetof(graphic_presetdb_info, rgb_gain) == 104 &&
	      __builtin_offsetof(graphic_presetdb_info, brightness) == 128);

namespace vexil::presetdb {

inline constexpr s64 kUnity = 1024;

inline constexpr presetdb_io kIoDefaults{RANGE_FULL, COLORSPACE_BT709, FORMAT_RGB};
inline constexpr presetdb_hdr_mode kModeDefaults{
	false, false, false, false, false, false, false, kUnity};
inline constexpr graphic_presetdb_info kDefaults{
	.input = kIoDefaults,
	.output = kIoDefaults,
	.hue = 50,
	.sat = 128,
	.contrast = 1024,
	.sdr = kModeDefaults,
	.hdr10 = kModeDefaults,
	.hlg = kModeDefaults,
	.rgb_offset = {false, false},
	.rgb_clipping = {false, false},
	.rgb_gain = {kUnity, kUnity, kUnity},
	.brightness = {kUnity, kUnity, kUnity},
};

/** A value word: texts that begin like this, letter case minded, stand for @value. */
struct Word {
	const char *prefix;
	u32 value;
};

/** Members of a group. */
struct Member {
	enum Kind { kWord, kFlag, kInteger };

	const char *key;
	Kind kind;
	size_t offset; // in the group's record
	int missing;   // numbers in the log
	int mistyped;
	Span<const Word> words; // 0, "auto", for a text that is none of them
};

/** A group, its record in the preset, and who reports on it. */
struct Group {
	const char *key;
	const char *function;
	int missing;       // in the reader's own line
	int missing_group; // in the parser's line
	size_t offset;     // of its record in graphic_presetdb_info
	Span<const Member> members;
	const char *gain_key; // of a mode's user gain; null for other groups
};

inline constexpr Word kRanges[] = {{"FULL", RANGE_FULL}, {"Limite", RANGE_LIMIT}};
inline constexpr Word kColorspaces[] = {
	{"BT601", COLORSPACE_BT601},         {"BT709", COLORSPACE_BT709},
	{"BT2020", COLORSPACE_BT2020},       {"ADOBE_RGB", COLORSPACE_ADOBE_RGB},
	{"DCI_P3", COLORSPACE_DCI_P3},
};
inline constexpr Word kFormats[] = {{"RGB", FORMAT_RGB}, {"YUV", FORMAT_YUV}};
inline constexpr const char *kOnPrefix = "ON";

#define VEXIL_IN(record, field) __builtin_offsetof(record, field)
inline constexpr Member kIo[] = {
	{"Range", Member::kWord, VEXIL_IN(presetdb_io, range), 134, 137, kRanges},
	{"ColorSpace", Member::kWord, VEXIL_IN(presetdb_io, colorspace), 149, 152, kColorspaces},
	{"Dataformat", Member::kWord, VEXIL_IN(presetdb_io, format), 171, 174, kFormats},
};
inline constexpr Member kTuning[] = {
	{"Hue", Member::kInteger, 0, 198, 0, {}},
	{"Sat", Member::kInteger, 8, 203, 0, {}},
	{"Contrast", Member::kInteger, 16, 208, 0, {}},
};
static_assert(VEXIL_IN(graphic_presetdb_info, sat) == VEXIL_IN(graphic_presetdb_info, hue) + 8);
static_assert(VEXIL_IN(graphic_presetdb_info, contrast) == VEXIL_IN(graphic_presetdb_info, hue) + 16);
inline constexpr Member kMode[] = {
	{"XVYCCManualMode", Member::kFlag, VEXIL_IN(presetdb_hdr_mode, xvycc_manual_mode), 226, 228, {}},
	{"GamutManualMode", Member::kFlag, VEXIL_IN(presetdb_hdr_mode, gamut_manual_mode), 231, 233, {}},
	{"EOTFEnable", Member::kFlag, VEXIL_IN(presetdb_hdr_mode, eotf_enable), 236, 238, {}},
	{"OETFEnable", Member::kFlag, VEXIL_IN(presetdb_hdr_mode, oetf_enable), 241, 243, {}},
	{"EOTF_EXTMode", Member::kFlag, VEXIL_IN(presetdb_hdr_mode, eotf_ext_mode), 246, 248, {}},
	{"OETF_EXTMode", Member::kFlag, VEXIL_IN(presetdb_hdr_mode, oetf_ext_mode), 251, 253, {}},
	{"GamutEnable", Member::kFlag, VEXIL_IN(presetdb_hdr_mode, gamut_enable), 256, 258, {}},
};
inline constexpr size_t kGainOffset = VEXIL_IN(presetdb_hdr_mode, user_gain);
inline constexpr int kGainMissing = 266;
inline constexpr Member kOffset[] = {
	{"RGBOffsetManualMode", Member::kFlag, VEXIL_IN(presetdb_rgb_offset, manual_mode), 289, 289, {}},
	{"RGBOffsetEnable", Member::kFlag, VEXIL_IN(presetdb_rgb_offset, enable), 291, 291, {}},
};
inline constexpr Member kClipping[] = {
	{"RGBClippingManualMode", Member::kFlag, VEXIL_IN(presetdb_rgb_clipping, manual_mode), 312, 312, {}},
	{"RGBClippingEnable", Member::kFlag, VEXIL_IN(presetdb_rgb_clipping, enable), 314, 314, {}},
};
inline constexpr Member kGain[] = {
	{"RGBGain_R", Member::kInteger, VEXIL_IN(presetdb_rgb_gain, rgb_gain_r), 329, 0, {}},
	{"RGBGain_G", Member::kInteger, VEXIL_IN(presetdb_rgb_gain, rgb_gain_g), 334, 0, {}},
	{"RGBGain_B", Member::kInteger, VEXIL_IN(presetdb_rgb_gain, rgb_gain_b), 339, 0, {}},
};
inline constexpr Member kBrightness[] = {
	{"Brightness_R", Member::kInteger, VEXIL_IN(presetdb_brightness, brightness_r), 356, 0, {}},
	{"Brightness_G", Member::kInteger, VEXIL_IN(presetdb_brightness, brightness_g), 361, 0, {}},
	{"Brightness_B", Member::kInteger, VEXIL_IN(presetdb_brightness, brightness_b), 366, 0, {}},
};

/** In the order in which they are read. */
#define VEXIL_GROUP_AT(field) VEXIL_IN(graphic_presetdb_info, field)
inline constexpr Group kGroups[] = {
	{"Input", "__presetdb_get_IOinfo", 131, 382, VEXIL_GROUP_AT(input), kIo, nullptr},
	{"Output", "__presetdb_get_IOinfo", 131, 383, VEXIL_GROUP_AT(output), kIo, nullptr},
	{"Colortuning", "__presetdb_get_colortuning", 195, 384, VEXIL_GROUP_AT(hue), kTuning, nullptr},
	{"SDR", "__presetdb_get_hdrmode", 223, 385, VEXIL_GROUP_AT(sdr), kMode, "User_gain_sdr"},
	{"HDR10", "__presetdb_get_hdrmode", 223, 386, VEXIL_GROUP_AT(hdr10), kMode, "User_gain_pq"},
	{"HLG", "__presetdb_get_hdrmode", 223, 387, VEXIL_GROUP_AT(hlg), kMode, "User_gain_hlg"},
	{"RGBOffset", "__presetdb_get_RGBOffset", 281, 388, VEXIL_GROUP_AT(rgb_offset), kOffset, nullptr},
	{"RGBClipping", "__presetdb_get_RGBClipping", 304, 389, VEXIL_GROUP_AT(rgb_clipping), kClipping,
	 nullptr},
	{"RGBGain", "__presetdb_get_RGBGain", 326, 390, VEXIL_GROUP_AT(rgb_gain), kGain, nullptr},
	{"Brightness", "__presetdb_get_Brightness", 353, 391, VEXIL_GROUP_AT(brightness), kBrightness,
	 nullptr},
};
#undef VEXIL_GROUP_AT
#undef VEXIL_IN

} // namespace vexil::presetdb
