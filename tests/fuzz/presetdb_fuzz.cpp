// SPDX-License-Identifier: MIT
//
// A preset document gives the record that its members say, field by field, with the defaults where
// they are missing or of another kind; one log line each for what is missing or mistyped; and not a
// byte beside the record. A document that cannot be read leaves nothing behind.
//
// Input: the text of a document.
#include <cstring>
#include <memory>
#include <string>

#include <vexil/presetdb.h>

#include "core/json.h"
#include "tests/fuzz/fuzz.h"

namespace {

using vexil_fuzz::require;

constexpr std::size_t kLongestInput = 4096;
constexpr std::size_t kGuard = 64;
constexpr int kGuardByte = 0xA5;

struct DeleteJson {
	void operator()(cJSON *document) const { vexil_json_delete(document); }
};
using Document = std::unique_ptr<cJSON, DeleteJson>;

char lower(char c)
{
	return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

/** Reads a document into what a record must be. */
class Model {
public:
	explicit Model(const cJSON *root)
	{
		info.input = info.output = {RANGE_FULL, COLORSPACE_BT709, FORMAT_RGB};
		info.hue = 50;
		info.sat = 128;
		info.contrast = 1024;
		info.sdr.user_gain = info.hdr10.user_gain = info.hlg.user_gain = 1024;
		info.rgb_gain = {1024, 1024, 1024};
		info.brightness = {1024, 1024, 1024};
		preset_ = named(root, "preset_pq_value");
		done = preset_ != nullptr;
		if (!done) {
			lines = 1;
			return;
		}
		format("input", info.input);
		format("output", info.output);
		if (open("colortuning")) {
			number("hue", info.hue);
			number("sat", info.sat);
			number("contrast", info.contrast);
		}
		mode("sdr", "user_gain_sdr", info.sdr);
		mode("hdr10", "user_gain_pq", info.hdr10);
		mode("hlg", "user_gain_hlg", info.hlg);
		if (open("rgboffset")) {
			flag("rgboffsetmanualmode", info.rgb_offset.manual_mode);
			flag("rgboffsetenable", info.rgb_offset.enable);
		}
		if (open("rgbclipping")) {
			flag("rgbclippingmanualmode", info.rgb_clipping.manual_mode);
			flag("rgbclippingenable", info.rgb_clipping.enable);
		}
		if (open("rgbgain")) {
			number("rgbgain_r", info.rgb_gain.rgb_gain_r);
			number("rgbgain_g", info.rgb_gain.rgb_gain_g);
			number("rgbgain_b", info.rgb_gain.rgb_gain_b);
		}
		if (open("brightness")) {
			number("brightness_r", info.brightness.brightness_r);
			number("brightness_g", info.brightness.brightness_g);
			number("brightness_b", info.brightness.brightness_b);
		}
	}

	graphic_presetdb_info info{};
	bool done = false;
	std::size_t lines = 0;

private:
	/** The first member whose name is @key in small letters. */
	static const cJSON *named(const cJSON *object, const std::string &key)
	{
		for (const cJSON *item = object ? object->child : nullptr; item;
		     item = item->next) {
			std::string name = item->string ? item->string : "";
			for (char &c : name)
				c = lower(c);
			if (item->string && name == key)
				return item;
		}
		return nullptr;
	}
	bool open(const char *group)
	{
		group_ = named(preset_, group);
		lines += group_ ? 0 : 2; // the reader's and the parser's
		return group_ != nullptr;
	}
	void number(const char *key, s64 &field)
	{
		const cJSON *item = named(group_, key);
		if (!item)
			++lines;
		else
			field = (item->type & 0xFF) == cJSON_Number ? item->valuelong : 0;
	}
	/** The text of a member; null, with a line, when there is none. */
	const char *word(const char *key)
	{
		const cJSON *item = named(group_, key);
		const char *text =
			item && (item->type & 0xFF) == cJSON_String ? item->valuestring : nullptr;
		lines += text ? 0 : 1;
		return text;
	}
	static bool begins(const char *text, const std::string &with)
	{
		return std::string(text).compare(0, with.size(), with) == 0;
	}
	void flag(const char *key, bool &field)
	{
		if (const char *text = word(key))
			field = begins(text, "ON");
	}
	void format(const char *group, presetdb_io &io)
	{
		if (!open(group))
			return;
		if (const char *text = word("range"))
			io.range = begins(text, "FULL")     ? RANGE_FULL
				   : begins(text, "Limite") ? RANGE_LIMIT
							    : RANGE_AUTO;
		if (const char *text = word("colorspace"))
			io.colorspace = begins(text, "BT601")       ? COLORSPACE_BT601
					: begins(text, "BT709")     ? COLORSPACE_BT709
					: begins(text, "BT2020")    ? COLORSPACE_BT2020
					: begins(text, "ADOBE_RGB") ? COLORSPACE_ADOBE_RGB
					: begins(text, "DCI_P3")    ? COLORSPACE_DCI_P3
								    : COLORSPACE_AUTO;
		if (const char *text = word("dataformat"))
			io.format = begins(text, "RGB")   ? FORMAT_RGB
				    : begins(text, "YUV") ? FORMAT_YUV
							  : FORMAT_AUTO;
	}
	void mode(const char *group, const char *gain, presetdb_hdr_mode &mode)
	{
		if (!open(group))
			return;
		flag("xvyccmanualmode", mode.xvycc_manual_mode);
		flag("gamutmanualmode", mode.gamut_manual_mode);
		flag("eotfenable", mode.eotf_enable);
		flag("oetfenable", mode.oetf_enable);
		flag("eotf_extmode", mode.eotf_ext_mode);
		flag("oetf_extmode", mode.oetf_ext_mode);
		flag("gamutenable", mode.gamut_enable);
		number(gain, mode.user_gain);
	}

	const cJSON *preset_ = nullptr;
	const cJSON *group_ = nullptr;
};

bool operator==(const presetdb_io &a, const presetdb_io &b)
{
	return a.range == b.range && a.colorspace == b.colorspace && a.format == b.format;
}

bool operator==(const presetdb_hdr_mode &a, const presetdb_hdr_mode &b)
{
	return std::memcmp(&a, &b, 7) == 0 && a.user_gain == b.user_gain;
}

bool operator==(const graphic_presetdb_info &a, const graphic_presetdb_info &b)
{
	return a.input == b.input && a.output == b.output && a.hue == b.hue && a.sat == b.sat &&
	       a.contrast == b.contrast && a.sdr == b.sdr && a.hdr10 == b.hdr10 && a.hlg == b.hlg &&
	       std::memcmp(&a.rgb_offset, &b.rgb_offset, 2) == 0 &&
	       std::memcmp(&a.rgb_clipping, &b.rgb_clipping, 2) == 0 &&
	       std::memcmp(&a.rgb_gain, &b.rgb_gain, 24) == 0 &&
	       std::memcmp(&a.brightness, &b.brightness, 24) == 0;
}

/** Every line of a log, which must be the parser's. */
std::size_t lines_of(const std::string &log)
{
	const std::string end = "]PresetDB parsing fail!!\n";
	std::size_t lines = 0, at = 0;
	for (; at < log.size(); ++lines) {
		const std::size_t next = log.find(end, at);
		require(log[at] == '[' && next != std::string::npos, "a line of the parser");
		at = next + end.size();
	}
	return lines;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
	const vexil_fuzz::Blocks blocks;
	const std::string text(reinterpret_cast<const char *>(data),
			       size < kLongestInput ? size : kLongestInput);

	// One allocation after the other is refused, until there are no more.
	for (std::size_t nth = 1; nth < 64; nth += 1 + nth / 4) {
		const vexil_fuzz::Blocks inner;
		vexil_fuzz::refuse(nth, false);
		const Document document(static_cast<cJSON *>(vexil_json_parse(text.c_str())));
		const bool refused = vexil_fuzz::refused();
		require(!refused || !document, "a document without memory");
		if (!refused)
			break;
	}
	vexil_fuzz::refuse(0, false);

	const Document document(static_cast<cJSON *>(vexil_json_parse(text.c_str())));
	vexil_fuzz::take_log();
	auto guarded = std::make_unique<std::uint8_t[]>(2 * kGuard + sizeof(graphic_presetdb_info));
	std::memset(guarded.get(), kGuardByte, 2 * kGuard + sizeof(graphic_presetdb_info));
	auto *const info = reinterpret_cast<graphic_presetdb_info *>(guarded.get() + kGuard);
	const bool done = graphic_presetdb_parse(document.get(), info);

	const Model model(document.get());
	require(done == model.done, "a document is read, or not");
	require(*info == model.info, "the record of a document");
	require(lines_of(vexil_fuzz::take_log()) == model.lines, "the lines about a document");
	for (std::size_t i = 0; i < kGuard; ++i)
		require(guarded[i] == kGuardByte &&
				guarded[kGuard + sizeof(graphic_presetdb_info) + i] == kGuardByte,
			"a byte beside the record");
	return 0;
}
