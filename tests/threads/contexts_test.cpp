// SPDX-License-Identifier: MIT
//
// Maps and rule contexts of their own in eight threads: built, exported, examined, adopted, merged,
// evaluated, loaded, printed and destroyed over and over. What each thread sees, logs and bytes of
// images included, is what the same work alone gave.
#include <vexil/mem.h>
#include <vexil/presetdb.h>
#include <vexil/verify.h>

#include <array>
#include <random>

#include "tests/support/rm_json.h"
#include "tests/threads/together.h"

namespace {

using namespace vexil_test;

/** Texts of one product and of a customer's changes, different for each seed. */
struct Texts {
	explicit Texts(u64 seed) : random(seed)
	{
		hardware = "{'PqHWRegList': {'0.version': {'MajorVersion': 2, 'Revision': " +
			   number(seed) + "}, 'register': [" + entries("'R#'", 200, 1) + "]}}";
		software = "{'PqSWRegList': {'register': [" + entries("'V#'", 40, 100) +
			   "]}, 'PqCusSWRegList': {'register': [" + entries("'V#'", 10, 500) +
			   "]}}";
		groups = product("Base");
		sub_groups = product("Sub");
		sources =
			"{'PqRuleLists': {'#version': {'MajorVersion': 2}, 'In': {'content': ['a', 'b', "
			"'c']}, 'Mode': {'content': ['x', 'y']}, 'L': {'content': 1}, 'D': {'define': "
			"{'low': {'L': '[0,9]'}, 'high': {'L': '[10,99]'}}, 'content': ['low', "
			"'high']}}}";
		rules = rule_groups("Base");
		sub_rules = rule_groups("Sub");
		presets =
			"{'Preset_PQ_Value': {'Input': {'Range': 'Limited'}, 'Colortuning': {'Hue': " +
			number(random() % 100) + "}}}";
	}

	std::string hardware, software, groups, sub_groups, sources, rules, sub_rules, presets;

private:
	static std::string number(u64 value) { return std::to_string(value); }
	std::string pick(const char *name, u64 most)
	{
		return "'" + std::string(name) + number(random() % most) +
		       "': " + number(random() % 4096);
	}
	std::string entries(const std::string &form, u64 count, u64 factor)
	{
		std::string text;
		for (u64 i = 0; i < count; ++i)
			text += (i ? ", {" : "{") + form.substr(0, 2) + number(i) +
				"': " + number(i * factor % 1000) + "}";
		return text;
	}
	std::string config()
	{
		std::string hardware_list = pick("R", 200);
		for (u64 left = random() % 8; left > 0; --left)
			hardware_list += ", " + pick("R", 210); // some are unknown
		return "{'hwreg': {" + hardware_list + "}, 'swreg': {" + pick("V", 40) +
		       "}, 'cus_swreg': {" + pick("V", 12) + "}, 'hwaddr': {'0x1" +
		       number(random() % 9) + "': 7}, 'lut': {'gamma': 't" + number(random() % 3) +
		       ".bin'}}";
	}
	std::string product(const std::string &stem)
	{
		const char *const levels[] = {"IND", "PI", "L1", "L2", "SYNC", "none"};
		std::string text =
			"{'VexilVersion': {'#version': {'MajorVersion': 2, 'MinorVersion': 1, "
			"'Note': '" +
			stem + "'}}, 'PqFuncGroups': {'Folder" + stem + "': {";
		for (u64 ip = 0; ip < 6; ++ip) {
			// The first one of both is the same, and the customer's wins.
			text += std::string(ip ? ", '" : "'") + (ip ? stem : "Both") + number(ip) +
				"': {'settings': {";
			for (u64 setting = 0; setting < 4; ++setting) {
				text += std::string(setting ? ", '" : "'") + stem + "S" +
					number(4 * ip + setting) + "': {'1.PQlevel': '" +
					levels[random() % 6] + "', " +
					(setting == 2   ? "'commonReg': true, "
					 : setting == 3 ? "'1.PresetRegs': 'panel', "
							: "") +
					"'group': {'M': " + config() + ", 'N': " + config() + "}}";
			}
			text += "}}";
		}
		return text + "}}}";
	}
	std::string rule_groups(const std::string &stem)
	{
		std::string text;
		for (u64 rule = 0; rule < 6; ++rule) {
			text += (rule ? ", '" : "'") + stem + "R" + number(rule) + "': {'rules': [";
			for (u64 n = 0; n < 4; ++n) {
				const std::string setting = stem + "S" + number(random() % 24);
				const std::string condition[] = {
					"'In': ['a', 'c'], 'Mode': 'x'", "'D': 'high'",
					"'L': '[5," + number(random() % 50) + "]'", ""};
				text += std::string(n ? ", " : "") + "{'comparator': {" +
					condition[n] + "}, 'settings': ['" + setting + "#M', '" +
					setting + "#N'], 'children': [" +
					(rule && n == 1 ? "'" + stem + "R" + number(rule - 1) + "'"
							: "") +
					"]}";
			}
			text += "]}";
		}
		return "{'PqRuleGroups': {" + text + "}}";
	}

	std::mt19937_64 random;
};

/** The same as documents. Parsing them is for one thread at a time. */
struct Documents {
	explicit Documents(u64 seed) : Documents(Texts(seed)) {}
	explicit Documents(const Texts &texts)
	    : hardware(json(texts.hardware)), software(json(texts.software)),
	      groups(json(texts.groups)), sub_groups(json(texts.sub_groups)),
	      sources(json(texts.sources)), rules(json(texts.rules)),
	      sub_rules(json(texts.sub_rules)), presets(json(texts.presets))
	{
	}
	/** Deletes them. */
	void clear()
	{
		for (Json *each : {&hardware, &software, &groups, &sub_groups, &sources, &rules,
				   &sub_rules, &presets})
			each->reset();
	}
	Json hardware, software, groups, sub_groups, sources, rules, sub_rules, presets;
};

bool add_block(int tag, const char *data, u32 length, void *to)
{
	*static_cast<std::string *>(to) += tag_text(tag) + ":" + std::string(data, length) + "\n";
	return true;
}

/** Everything that one product does in its life, written down. */
class Life {
public:
	explicit Life(const Documents &documents) : documents_(documents) {}

	std::string tell()
	{
		note("presets", graphic_presetdb_parse(documents_.presets.get(), &info_));
		story_ += std::to_string(info_.hue) + "\n";
		Map base, sub, merged;
		Rules base_rules, sub_rules, merged_rules;
		build(base, base_rules, documents_.groups, documents_.rules);
		build(sub, sub_rules, documents_.sub_groups, documents_.sub_rules);
		use(base.get(), base_rules.get());
		ImageBytes base_image = ship(base), base_rules_image = ship(base_rules);
		ImageBytes sub_image = ship(sub), sub_rules_image = ship(sub_rules);
		use(base.get(), base_rules.get());
		use(sub.get(), sub_rules.get());
		note("merged", merged.init() && pim_merge(merged.get(), base.get(), sub.get()));
		note("rules", merged_rules.init() && rm_merge(merged_rules.get(), base_rules.get(),
							      sub_rules.get(), merged.get()));
		use(merged.get(), merged_rules.get());
		ImageBytes merged_image = ship(merged), merged_rules_image = ship(merged_rules);
		use(merged.get(), merged_rules.get());
		pim_print(merged.get());
		rm_print(merged_rules.get());
		// Contexts go before the images that they stand over.
		note("destroyed", rm_destroy(merged_rules.out()) && pim_destroy(merged.out()) &&
					  rm_destroy(sub_rules.out()) &&
					  rm_destroy(base_rules.out()) && pim_destroy(sub.out()) &&
					  pim_destroy(base.out()));
		return std::move(story_);
	}

private:
	void note(const char *what, bool done)
	{
		story_ += std::string(what) + (done ? "" : " not") + "\n" + take_log();
	}
	void build(Map &map, Rules &rules, const Json &groups, const Json &rule_groups)
	{
		bool done = map.init() && rules.init() &&
			    pim_insert_regmap_json(map.get(), documents_.hardware.get()) &&
			    pim_insert_vregmap_json(map.get(), documents_.software.get()) &&
			    pim_insert_handler(map.get(), "gamma", add_block);
		for (const char *file : {"t0.bin", "t1.bin"})
			done = done && pim_insert_file(map.get(), file, file, 6);
		note("map", done && pim_insert(map.get(), groups.get()) && pim_finish(map.get()));
		note("rules", rm_insert_source_json(rules.get(), documents_.sources.get()) &&
				      rm_insert(rules.get(), rule_groups.get(), map.get()) &&
				      rm_finish(rules.get()));
	}
	void examine(const ImageBytes &image)
	{
		vexil_image_fault fault;
		note("sound", vexil_image_verify(image.bytes().data(), image.size(), &fault));
		story_.append(image.bytes().data(), image.size());
	}
	/** The map over its own image, with registers in address form. */
	ImageBytes ship(Map &map)
	{
		ImageBytes image(std::vector<char>(pim_get_export_size(map.get())));
		note("exported", pim_export(map.get(), image.data()) == image.size());
		examine(image);
		pim_destroy(map.out());
		while (table_.size() < 200) {
			const auto i = static_cast<u32>(table_.size());
			table_.push_back(reg(i / 2 % 16, 16 + i / 2, i % 2 * 8, 8));
		}
		note("adopted", adopt(map, image, table_) &&
					pim_insert_handler(map.get(), "gamma", add_block));
		return image;
	}
	ImageBytes ship(Rules &rules)
	{
		ImageBytes image(std::vector<char>(rm_get_export_size(rules.get())));
		note("exported", rm_export(rules.get(), image.data()) == image.size());
		examine(image);
		rm_destroy(rules.out());
		note("adopted", rm_init(rules.out(), image.data(), image.size()));
		return image;
	}
	void use(pim *map, rm *rules)
	{
		rm_handler *handler = nullptr;
		note("handler", rm_create_handler(rules, &handler));
		for (const char *filter : {"In:a;Mode:x", "L:12", "L:7;In:b", ""}) {
			note("stated",
			     rm_handler_clear(handler) && rm_handler_set(handler, filter, 0));
			note("triggered", rm_handler_trigger(handler, nullptr));
			u16 *ids = nullptr;
			const size_t count = rm_handler_get_result(handler, &ids);
			for (size_t i = 0; i < count; ++i)
				pim_load_setting(map, ids[i], false, add_block, &story_);
			u16 *presets = nullptr;
			const size_t num_presets = rm_handler_get_preset(handler, &presets);
			pim_load_preset(map, presets, num_presets, "panel", add_block, &story_);
		}
		rm_handler_destroy(&handler);
		pim_load_common_reg_setting(map, add_block, &story_);
		story_ += std::to_string(pim_get_reg_num(map, E_PQ_MAX_DOMAIN, E_PQLV_MAX));
		vexil_version version;
		note("version", pim_get_version(map, &version));
		note("ip", pim_get_pim_version(map, &version, "Both0"));
		note("rule", rm_get_rm_version(rules, &version, "BaseR0"));
		char *text = nullptr;
		note("customer", pim_get_cus_version(map, &text));
		note(text, rm_set(rules, "In:a", 0) && rm_trigger(rules, "BaseR1;SubR1"));
		note("status", vexil_mem_status(&memory_));
	}

	const Documents &documents_;
	RegisterTable table_;
	graphic_presetdb_info info_{};
	vexil_mem_info memory_{};
	std::string story_;
};

constexpr u64 kFirstSeed = 2718;
constexpr size_t kStories = 2; // of each thread

TEST(OwnContexts, LiveTheirLivesAtOnce)
{
	std::vector<std::string> alone;
	for (size_t i = 0; i < kThreads * kStories; ++i) {
		const Documents documents(kFirstSeed + i);
		alone.push_back(Life(documents).tell());
		ASSERT_NE(alone.back().find("rules\n"), std::string::npos);
		EXPECT_EQ(alone.back().find("adopted not"), std::string::npos);
		EXPECT_EQ(alone.back().find("sound not"), std::string::npos);
		EXPECT_EQ(alone.back().find("merged not"), std::string::npos);
	}
	EXPECT_NE(alone[0], alone[1]);

	// Documents are made before, and deleted by the thread that uses them.
	const size_t rounds = wanted_rounds();
	std::array<std::vector<Documents>, kThreads> documents;
	for (size_t i = 0; i < kThreads; ++i) {
		for (size_t n = 0; n < rounds; ++n)
			documents[i].emplace_back(kFirstSeed + i * kStories + n % kStories);
	}
	std::array<size_t, kThreads> told{}, different{};
	together([&](size_t i) {
		for (size_t n = 0; n < rounds; ++n) {
			const std::string &expected = alone[i * kStories + n % kStories];
			different[i] += Life(documents[i][n]).tell() != expected;
			documents[i][n].clear();
			++told[i];
		}
	});
	for (size_t i = 0; i < kThreads; ++i) {
		EXPECT_EQ(told[i], rounds);
		EXPECT_EQ(different[i], 0u) << "seeds " << kFirstSeed + i * kStories << " on";
	}
	std::printf("%zu lives of products in %zu threads, compared with %zu alone\n",
		    rounds * kThreads, kThreads, alone.size());
}

TEST(OwnContexts, ParseTheirDocumentsAtOnce)
{
	std::vector<std::string> alone;
	for (size_t i = 0; i < kThreads; ++i)
		alone.push_back(Life(Documents(kFirstSeed + i)).tell());
	std::array<size_t, kThreads> different{};
	const size_t rounds = wanted_rounds() / 2;
	together([&](size_t i) {
		const Texts texts(kFirstSeed + i);
		for (size_t n = 0; n < rounds; ++n) {
			EXPECT_FALSE(json("{'cut off': "));
			const Documents documents(texts);
			different[i] += Life(documents).tell() != alone[i];
		}
	});
	for (size_t i = 0; i < kThreads; ++i)
		EXPECT_EQ(different[i], 0u);
}

TEST(OwnContexts, ShareOneImageThatIsOnlyExamined)
{
	const Documents documents(kFirstSeed);
	Map map;
	ASSERT_TRUE(map.init());
	ASSERT_TRUE(pim_insert_regmap_json(map.get(), documents.hardware.get()));
	ASSERT_TRUE(pim_insert(map.get(), documents.groups.get()));
	take_log();
	const ImageBytes sound = image_of(map.get());
	ImageBytes damaged = sound;
	damaged.put<u16>(ImageBytes::node_at(7) + 3, 0);
	vexil_image_fault expected;
	ASSERT_FALSE(vexil_image_verify(damaged.bytes().data(), damaged.size(), &expected));
	std::array<size_t, kThreads> right{};
	const size_t rounds = wanted_rounds() * 10;
	together([&](size_t i) {
		for (size_t n = 0; n < rounds; ++n) {
			vexil_image_fault fault;
			right[i] +=
				vexil_image_verify(sound.bytes().data(), sound.size(), &fault) &&
				fault.code == VEXIL_IMAGE_SOUND;
			right[i] += !vexil_image_verify(damaged.bytes().data(), damaged.size(),
							&fault) &&
				    fault.code == expected.code && fault.node == expected.node &&
				    fault.offset == expected.offset &&
				    fault.other == expected.other;
		}
	});
	for (size_t i = 0; i < kThreads; ++i)
		EXPECT_EQ(right[i], 2 * rounds);
}

} // namespace
