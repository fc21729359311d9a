// SPDX-License-Identifier: MIT
//
// The reader that walks the table.

#include "core/bytes.h"
#include "core/json.h"
#include "presetdb/table.h"

namespace {

using namespace vexil::presetdb;

constexpr int kNoPresetReport = 380;
constexpr int kModeMissing = 223;

void report(const char *function, int number)
{
	_printk("[%s][%d]PresetDB parsing fail!!\n", function, number);
}

bool starts_with(const char *text, const char *prefix)
{
	for (; *prefix != '\0'; ++text, ++prefix) {
		if (*text != *prefix)
			return false;
	}
	return true;
}

u32 word_value(const Member &member, const char *text)
{
	for (const Word &word : member.words) {
		if (starts_with(text, word.prefix))
			return word.value;
	}
	return 0;
}

/** One member into its field; what is missing or mistyped is logged and leaves the field alone. */
void read_member(const cJSON *group, const Group &row, const Member &member, u8 *record)
{
	const cJSON *item = vexil::member(group, member.key);
	u8 *field = record + member.offset;
	if (!item) {
		report(row.function, member.missing);
		return;
	}
	if (member.kind == Member::kInteger) {
		vexil::store(field, vexil::number_of(item));
		return;
	}
	const char *text = vexil::text_of(item);
	if (!text)
		report(row.function, member.mistyped);
	else if (member.kind == Member::kFlag)
		vexil::store(field, starts_with(text, kOnPrefix));
	else
		vexil::store(field, word_value(member, text));
}

/** A whole group into its record; false, and logged, when the document has no such group. */
bool read_group(const cJSON *preset, const char *key, const Group &row, u8 *record)
{
	const cJSON *group = vexil::member(preset, key);
	if (!group) {
		report(row.function, row.missing);
		return false;
	}
	for (const Member &member : row.members)
		read_member(group, row, member, record);
	if (row.gain_key) {
		const Member gain{row.gain_key, Member::kInteger, kGainOffset, kGainMissing, 0, {}};
		read_member(group, row, gain, record);
	}
	return true;
}

u8 *record_of(graphic_presetdb_info *info, const Group &row)
{
	return reinterpret_cast<u8 *>(info) + row.offset;
}

/** The row of a dynamic-range mode; null for any other name. */
const Group *mode_row(const char *name)
{
	for (const Group &row : kGroups) {
		if (row.gain_key && name && strcmp(row.key, name) == 0)
			return &row;
	}
	return nullptr;
}

} // namespace

extern "C" {

bool __presetdb_get_IOinfo(cJSON *preset, graphic_presetdb_info *info, const char *name)
{
	constexpr const Group &kInput = kGroups[0];
	constexpr const Group &kOutput = kGroups[1];
	const Group &row = name && starts_with(name, kInput.key) ? kInput : kOutput;
	return info && read_group(preset, name, row, record_of(info, row));
}

bool __presetdb_get_hdrmode(cJSON *preset, presetdb_hdr_mode *mode, const char *name)
{
	const Group *row = mode_row(name);
	if (!mode || !row) {
		report("__presetdb_get_hdrmode", kModeMissing);
		return false;
	}
	return read_group(preset, name, *row, reinterpret_cast<u8 *>(mode));
}

bool graphic_presetdb_parse(cJSON *json_node, graphic_presetdb_info *info)
{
	constexpr const char *kFunction = "graphic_presetdb_parse";
	if (!info)
		return false;
	*info = kDefaults;
	const cJSON *preset = vexil::member(json_node, "Preset_PQ_Value");
	if (!preset) {
		report(kFunction, kNoPresetReport);
		return false;
	}
	for (const Group &row : kGroups) {
		if (!read_group(preset, row.key, row, record_of(info, row)))
			report(kFunction, row.missing_group);
	}
	return true;
}

} // extern "C"
