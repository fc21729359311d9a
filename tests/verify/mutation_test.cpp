// SPDX-License-Identifier: MIT
//
// Sound images with a few fields changed at random, the head kept whole. What verifies can be
// adopted, queried, loaded node by node, triggered, merged, printed and destroyed: within bounds
// that follow from the number of nodes, and without a report of damage. What does not verify is
// refused or survived. The checks of memory are those of the sanitizers' build.
#include <random>

#include "tests/support/example.h"
#include "tests/support/rm_json.h"
#include "tests/support/verify.h"

namespace {

using namespace vexil_test;

constexpr unsigned kFirstSeed = 77001;

/** A change of an image's nodes or data. */
class Mutator {
public:
	explicit Mutator(unsigned seed) : random_(seed) {}

	void change(ImageBytes &image)
	{
		for (u32 changes = 1 + below(4) / 3; changes > 0; --changes)
			change_once(image);
	}
	u32 below(u32 limit) { return static_cast<u32>(random_() % limit); }

private:
	u16 any_node(const ImageBytes &image)
	{
		return static_cast<u16>(below(image.nodes_used() / 16));
	}
	u16 node_of(const ImageBytes &image, bool holder)
	{
		u16 id = any_node(image);
		for (int tries = 0; tries < 64 && (image.tag(id) >= 33) != holder; ++tries)
			id = any_node(image);
		return id;
	}
	/** A node nearby more often than one far away, none at all, or one outside. */
	u16 any_link(const ImageBytes &image, u16 from)
	{
		switch (below(6)) {
		case 0:
			return kNoId;
		case 1:
			return static_cast<u16>(image.nodes_used() / 16 + below(3));
		case 2:
			return any_node(image);
		default:
			return static_cast<u16>(from + below(17) - 8);
		}
	}
	u32 any_number()
	{
		static constexpr u32 kNumbers[] = {0,  1,  2,   3,      7,          8,
						   16, 24, 255, 0xFFFF, 0x7FFFFFFF, 0xFFFFFFFF};
		return below(3) == 0 ? static_cast<u32>(random_())
				     : kNumbers[below(std::size(kNumbers))];
	}
	void change_once(ImageBytes &image)
	{
		static constexpr u8 kTags[] = {1,  17, 18, 19, 20, 21, 22, 23, 24, 25, 26,
					       27, 28, 29, 30, 31, 32, 34, 35, 36, 37, 38,
					       39, 40, 41, 42, 43, 44, 45, 46, 47, 48, 52,
					       53, 54, 55, 56, 57, 58, 0,  33};
		const u16 node = node_of(image, false);
		const u16 holder = node_of(image, true);
		const std::size_t at = ImageBytes::node_at(node);
		const std::size_t holder_at = ImageBytes::node_at(holder);
		switch (below(9)) {
		case 0:
			image.put(at + kChildField, any_link(image, node));
			return;
		case 1:
			image.put(at + kNextField, any_link(image, node));
			return;
		case 2:
			image.put(ImageBytes::node_at(any_node(image)) + kTagField,
				  kTags[below(std::size(kTags))]);
			return;
		case 3:
			image.put(holder_at + kSizeField,
				  below(2) ? any_number()
					   : image.record_size(holder) + below(17) - 8);
			return;
		case 4:
			image.put(holder_at + kOffsetField,
				  below(2) ? image.record_offset(
						     static_cast<u16>(node_of(image, true)))
					   : image.record_offset(holder) + 8 * (below(5) - 2));
			return;
		case 5: { // two nodes change places
			const u16 other = any_node(image);
			const u16 first = any_node(image);
			for (std::size_t field = 2; field < 16; ++field) {
				const u8 byte = image.at<u8>(ImageBytes::node_at(first) + field);
				image.put(ImageBytes::node_at(first) + field,
					  image.at<u8>(ImageBytes::node_at(other) + field));
				image.put(ImageBytes::node_at(other) + field, byte);
			}
			return;
		}
		default: // in the data: any byte, or a number at a place where one may stand
			if (image.data_used() < 8)
				return;
			if (below(2))
				image.put(image.data_at() + below(image.data_used()),
					  static_cast<u8>(random_()));
			else if (below(2))
				image.put(image.data_at() + 2 * below(image.data_used() / 2 - 1),
					  any_link(image, holder));
			else
				image.put(image.data_at() + 4 * below(image.data_used() / 4 - 1),
					  any_number());
		}
	}

	std::mt19937 random_;
};

/** What the verifier let through, and how much of it adoption took. */
struct Tally {
	std::size_t verified = 0, adopted = 0, refused = 0, survived = 0;
};

bool sound_but_for_rings(const Fault &fault)
{
	return fault.code == VEXIL_IMAGE_SOUND || fault.code == VEXIL_IMAGE_RULE_RING;
}

/** Counts blocks and reads all of each, so that a wrong length is seen. */
struct Deliveries {
	std::size_t blocks = 0;
	unsigned sum = 0;
};
Deliveries &deliveries()
{
	static Deliveries all;
	return all;
}
void read_all(const char *data, u32 length)
{
	++deliveries().blocks;
	for (u32 i = 0; i < length; ++i)
		deliveries().sum += static_cast<u8>(data[i]);
}
bool take_block(int, const char *data, u32 length, void *)
{
	read_all(data, length);
	return true;
}
bool take_file(int, const char *data, u32 length, const char *entry, u32 entry_length)
{
	read_all(data, length);
	read_all(entry, entry_length);
	return true;
}

constexpr const char *kDamageReport = "vexil lib fail";

/** Everything that a map can be asked. */
void ask_map(pim *map, bool sound)
{
	const std::size_t nodes = node_count(map);
	pim_insert_handler(map, "gamma", take_block);
	pim_insert_handler(map, "gamma_lut", take_block);
	pim_insert_alg_handler(map, take_file);
	take_log();
	deliveries() = {};
	std::vector<u16> ids;
	for (std::size_t id = 0; id <= nodes; ++id) {
		const auto node = static_cast<u16>(id);
		char *label = nullptr;
		pim_get_setting(map, node, &label);
		if (label) {
			deliveries().sum += static_cast<unsigned>(std::strlen(label));
			pim_query_setting_id(map, label);
			pim_query_preset_id(map, label);
			vexil_version version;
			pim_get_pim_version(map, &version, label);
		}
		pim_load_setting(map, node, false, take_block, nullptr);
		ids.push_back(node);
	}
	if (sound) { // each block once, an algorithm's file and name being two
		EXPECT_LE(deliveries().blocks, 2 * nodes);
	}
	for (const u16 id : ids)
		pim_load_setting_count(map, id, 3, take_block, nullptr);
	ids.pop_back();
	pim_load_preset(map, ids.data(), ids.size(), "panel", take_block, nullptr);
	pim_load_common_reg_setting(map, take_block, nullptr);
	pim_load_setting_by_name(map, "mode#soft", take_block, nullptr);
	take_log();
	pim_print(map);
	const std::string dump = take_log();
	if (sound) {
		EXPECT_EQ(dump.find(kDamageReport), std::string::npos) << "a dump that ended early";
	}
}

const RegisterTable &registers()
{
	static const RegisterTable table = {reg(1, 0x10, 0, 4), reg(1, 0x10, 4, 4),
					    reg(2, 0x20, 0, 8), reg(3, 0x30, 0, 16),
					    reg(4, 0x40, 0, 1, false)};
	return table;
}

class Mutations : public testing::Test {
protected:
	void TearDown() override { take_log(); }

	/** One mutated map: verified, then adopted and used whatever the answer was. */
	static void try_map(const ImageBytes &image, bool addressed, Tally *tally)
	{
		const Fault fault = fault_of(image);
		const bool sound = fault == kSound;
		(sound ? tally->verified : tally->refused) += 1;
		ImageBytes bytes = image, sub_bytes = SmallMap().plan.write();
		Map map, sub;
		const bool whole = adopt(map, bytes, addressed ? registers() : RegisterTable{});
		if (!map.get()) {
			EXPECT_FALSE(sound);
			return;
		}
		tally->adopted += sound && whole;
		tally->survived += !sound;
		ask_map(map.get(), sound);
		if (sound) {
			EXPECT_EQ(fault_of(bytes), kSound) << "adoption left something else";
			EXPECT_EQ(fault_of(image_of(map.get())), kSound);
		}
		ASSERT_TRUE(adopt(sub, sub_bytes));
		for (const bool as_base : {false, true}) {
			Map merged;
			merged.init();
			const bool done = pim_merge(merged.get(), as_base ? map.get() : sub.get(),
						    as_base ? sub.get() : map.get());
			if (sound && done) {
				EXPECT_EQ(fault_of(image_of(merged.get())), kSound);
				ask_map(merged.get(), true);
			}
		}
	}

	/** The same for rules. */
	static void try_rules(const ImageBytes &image, Tally *tally)
	{
		const Fault fault = fault_of(image);
		const bool sound = sound_but_for_rings(fault);
		(sound ? tally->verified : tally->refused) += 1;
		ImageBytes bytes = image, second_bytes = image;
		Rules rules, second, merged;
		if (!adopt(rules, bytes))
			return; // also a name that is there twice
		tally->adopted += sound;
		tally->survived += !sound;
		ask_rules(rules.get(), sound);
		EXPECT_EQ(bytes.bytes(), image.bytes());
		Map map;
		map.init();
		ASSERT_TRUE(adopt(second, second_bytes) && merged.init());
		if (rm_merge(merged.get(), rules.get(), second.get(), map.get())) {
			ask_rules(merged.get(), sound);
			if (sound) {
				EXPECT_EQ(fault_of(image_of(merged.get())).code, fault.code);
			}
		}
	}

	static void ask_rules(rm *rules, bool sound)
	{
		take_log();
		vexil_version version;
		rm_get_rm_version(rules, &version, "Picture");
		for (const char *filter : {"", "Input:HDMI;Luma:5", "Input:Tuner", "Luma:0",
					   "Scene:Dark", "Site:Shop"}) {
			rm_clear(rules);
			rm_set(rules, filter, 4);
			rm_trigger(rules, nullptr);
			deliveries().sum += static_cast<unsigned>(results_of(rules).size() +
								  presets_of(rules).size());
			rm_trigger(rules, "Detail;Picture");
			rm_trigger(rules, "-Picture");
			rm_find(rules, filter, "Picture");
		}
		rm_handler *handler = nullptr;
		ASSERT_TRUE(rm_create_handler(rules, &handler));
		rm_handler_set(handler, "Input:HDMI;Luma:3", 0);
		rm_handler_trigger(handler, nullptr);
		rm_handler_find(handler, "Luma:3", "Detail");
		rm_handler_clear(handler);
		rm_handler_destroy(&handler);
		const std::string log = take_log();
		if (sound && rules->rmInd.keyBuffer) { // finished: the key's size is in the image
			EXPECT_EQ(log.find("Data length check failed"), std::string::npos);
			EXPECT_EQ(log.find("Invalid tag"), std::string::npos);
		}
		rm_print(rules);
		const std::string dump = take_log();
		if (sound) {
			EXPECT_EQ(dump.find(kDamageReport), std::string::npos);
		}
	}
};

/** @use(mutated, seed) for @images changed copies of @image, until one fails. */
template <typename Use>
void each_mutated(const ImageBytes &image, unsigned images, Use use)
{
	for (unsigned seed = kFirstSeed; seed < kFirstSeed + images; ++seed) {
		SCOPED_TRACE(seed);
		ImageBytes mutated = image;
		Mutator(seed).change(mutated);
		use(mutated, seed);
		ASSERT_FALSE(testing::Test::HasFailure());
	}
}

TEST_F(Mutations, SmallMaps)
{
	constexpr unsigned kImages = 4000;
	const ImageBytes image = SmallMap().plan.write();
	Tally tally;
	ASSERT_NO_FATAL_FAILURE(
		each_mutated(image, kImages, [&](ImageBytes &mutated, unsigned seed) {
			try_map(mutated, seed % 2 == 0, &tally);
		}));
	EXPECT_GT(tally.verified, kImages / 10);
	EXPECT_GT(tally.adopted, kImages / 10);
	EXPECT_GT(tally.refused, kImages / 3);
	EXPECT_GT(tally.survived, kImages / 3);
}

TEST_F(Mutations, SmallRules)
{
	constexpr unsigned kImages = 6000;
	const ImageBytes image = SmallRules().plan.write();
	Tally tally;
	ASSERT_NO_FATAL_FAILURE(each_mutated(image, kImages, [&](ImageBytes &mutated, unsigned) {
		try_rules(mutated, &tally);
	}));
	EXPECT_GT(tally.verified, kImages / 10);
	EXPECT_GT(tally.adopted, kImages / 10);
	EXPECT_GT(tally.refused, kImages / 3);
	EXPECT_GT(tally.survived, kImages / 4);
}

TEST_F(Mutations, ExampleMap)
{
	constexpr unsigned kImages = 150;
	const Example customer("customer");
	Map built;
	ASSERT_TRUE(build_example(built, customer));
	const ImageBytes image = image_of(built.get());
	Tally tally;
	ASSERT_NO_FATAL_FAILURE(
		each_mutated(image, kImages, [&](ImageBytes &mutated, unsigned seed) {
			try_map(mutated, seed % 2 == 0, &tally);
		}));
	EXPECT_GT(tally.adopted, kImages / 10);
	EXPECT_GT(tally.refused, kImages / 4);
}

TEST_F(Mutations, ExampleRules)
{
	constexpr unsigned kImages = 150;
	const std::filesystem::path folder(VEXIL_EXAMPLES);
	Map map;
	ASSERT_TRUE(build_example(map, Example("customer")));
	Rules built;
	ASSERT_TRUE(built.init());
	const Json sources(static_cast<cJSON *>(
		vexil_json_parse(read_bytes(folder / "tv/sources/sources.json").c_str())));
	const Json rules(static_cast<cJSON *>(
		vexil_json_parse(read_bytes(folder / "customer/rules/shop.json").c_str())));
	ASSERT_TRUE(rm_insert_source_json(built.get(), sources.get()) &&
		    rm_insert(built.get(), rules.get(), map.get()) && rm_finish(built.get()));
	const ImageBytes image = image_of(built.get());
	Tally tally;
	ASSERT_NO_FATAL_FAILURE(each_mutated(image, kImages, [&](ImageBytes &mutated, unsigned) {
		try_rules(mutated, &tally);
	}));
	EXPECT_GT(tally.adopted, kImages / 10);
	EXPECT_GT(tally.refused, kImages / 4);
}

TEST_F(Mutations, HeadsAndFigures)
{
	for (const bool of_rules : {false, true}) {
		const ImageBytes image =
			of_rules ? SmallRules().plan.write() : SmallMap().plan.write();
		Tally tally;
		for (unsigned seed = kFirstSeed; seed < kFirstSeed + 1500; ++seed) {
			SCOPED_TRACE(seed);
			Mutator mutator(seed);
			ImageBytes mutated = image;
			const std::size_t places[] = {
				72, 80, 84, 88, 92, image.data_at() - 8, image.data_at() - 4};
			const std::size_t at = places[mutator.below(std::size(places))];
			static constexpr u32 kValues[] = {
				0, 1, 8, 16, 1024, 2048, 0x7FFFFFFF, 0xFFFFFFF0, 0xFFFFFFFF};
			mutated.put(at, mutator.below(2)
						? kValues[mutator.below(std::size(kValues))]
						: mutated.at<u32>(at) + mutator.below(65) - 32);
			if (mutator.below(4) == 0)
				mutated.resize(mutator.below(image.size()) + 1);
			if (of_rules)
				try_rules(mutated, &tally);
			else
				try_map(mutated, seed % 2 == 0, &tally);
			ASSERT_FALSE(HasFailure());
		}
		EXPECT_GT(tally.refused, 1000u);
		EXPECT_GT(tally.verified, 20u);
	}
}

} // namespace
