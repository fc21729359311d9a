// SPDX-License-Identifier: MIT
//
// The example products from every producer: built, adopted, merged. What they must deliver is read
// from the same files by a second reading that shares nothing with the library.
#include "tests/support/example.h"

namespace {

using namespace vexil_test;

const Example &television()
{
	static const Example example("tv");
	return example;
}

const Example &customer()
{
	static const Example example("customer");
	return example;
}

class ExampleMap : public PimTest {
protected:
	static void SetUpTestSuite()
	{
		television();
		customer();
	}
	void expect(const Example &example, Form form)
	{
		ASSERT_TRUE(register_handlers(map.get(), television()));
		expect_example_pim(map.get(), example, form);
	}
	/** map := @base with @sub over it. */
	bool merge(pim *base, pim *sub, RegisterTable registers = {})
	{
		pim_destroy(map.out());
		table = std::move(registers);
		pim_init(map.out(), nullptr, 0, table.empty() ? nullptr : table.data(),
			 table.size());
		return pim_merge(map.get(), base, sub);
	}

	Map base;
	Map sub;
};

TEST_F(ExampleMap, SecondReadingSeesWhatTheDescriptionCounts)
{
	size_t ips = 0, settings = 0, configs = 0, common = 0, presets = 0;
	std::map<int, size_t> blocks;
	for (const ExampleIp &ip : television().ips) {
		ips += !ip.settings.empty();
		settings += ip.settings.size();
		for (const ExampleSetting &setting : ip.settings) {
			for (const ExampleConfig &config : setting.configs) {
				common += config.tag == EXTMEM_TAG_IP_COMMON_REG_CONFIG;
				configs += config.tag != EXTMEM_TAG_IP_COMMON_REG_CONFIG;
				presets += config.tag == EXTMEM_TAG_IP_PRESET_REG_CONFIG;
				for (const ExampleBlock &block : config.blocks)
					++blocks[block.tag];
			}
		}
	}
	EXPECT_EQ(ips, 35u);
	EXPECT_EQ(settings, 94u);
	EXPECT_EQ(configs, 337u);
	EXPECT_GT(common, 10u);
	EXPECT_GT(presets, 10u);
	EXPECT_EQ(blocks.size(), 7u); // six kinds, and the common lists
	EXPECT_EQ(television().hardware_names.size(), 576u);
	EXPECT_EQ(television().software_names.size(), 74u);
	EXPECT_EQ(television().customer_names.size(), 26u);
	EXPECT_EQ(television().table.size(), 576u);
	EXPECT_EQ(television().files.size(), 22u + 5);
}

TEST_F(ExampleMap, AsBuilt)
{
	ASSERT_TRUE(build_example(map, television()));
	expect(television(), Form::kBuilt);
	EXPECT_EQ(map->cus_swreg_json_version, television().customer_version);
}

TEST_F(ExampleMap, AsFinished)
{
	ASSERT_TRUE(build_example(map, television()));
	ASSERT_TRUE(pim_finish(map.get()));
	expect(television(), Form::kBuilt);
}

TEST_F(ExampleMap, AsExportedAndAdopted)
{
	ASSERT_TRUE(build_example(map, television()));
	ASSERT_TRUE(adopt_image(image_of(map.get())));
	expect(television(), Form::kScanned);
	EXPECT_EQ(map->cus_swreg_json_version, vexil_version{});
}

TEST_F(ExampleMap, AsAdoptedWithTheRegisterTable)
{
	ASSERT_TRUE(build_example(map, television()));
	ASSERT_TRUE(adopt_image(image_of(map.get()), television().table));
	expect(television(), Form::kAddressed);
	EXPECT_GT(pim_get_reg_num(map.get(), E_PQ_MAX_DOMAIN, E_PQLV_MAX), 300u);
}

TEST_F(ExampleMap, AsAdoptedTwiceFromTheSameMemory)
{
	// The second time the lists are in address form already.
	ASSERT_TRUE(build_example(map, television()));
	ASSERT_TRUE(adopt_image(image_of(map.get()), television().table));
	const std::vector<char> once = image.bytes();
	pim_destroy(map.out());
	ASSERT_TRUE(adopt(map, image, table));
	EXPECT_EQ(image.bytes(), once);
	expect(television(), Form::kAddressed);
}

TEST_F(ExampleMap, AsMergedWithAnEmptyMap)
{
	ASSERT_TRUE(build_example(base, television()));
	ASSERT_TRUE(sub.init());
	ASSERT_TRUE(merge(base.get(), sub.get()));
	expect(television(), Form::kScanned);
	expect_example_pim(base.get(), television(), Form::kBuilt); // as it was
}

TEST_F(ExampleMap, AsMergedWithAnEmptyMapAndTheRegisterTable)
{
	ASSERT_TRUE(build_example(base, television()));
	ASSERT_TRUE(sub.init());
	ASSERT_TRUE(merge(base.get(), sub.get(), television().table));
	expect(television(), Form::kAddressed);
	expect_example_pim(base.get(), television(), Form::kBuilt);
}

TEST_F(ExampleMap, AsMergedOverAnEmptyMap)
{
	ASSERT_TRUE(base.init());
	ASSERT_TRUE(build_example(sub, television()));
	ASSERT_TRUE(merge(base.get(), sub.get()));
	// Versions are the empty base's.
	Example expected = television();
	expected.total_version = expected.hardware_version = expected.software_version = {};
	expected.note = "";
	expect(expected, Form::kScanned);
}

TEST_F(ExampleMap, OfTheCustomerAsBuiltAndAsAdopted)
{
	ASSERT_TRUE(build_example(map, customer()));
	expect(customer(), Form::kBuilt);
	ASSERT_TRUE(adopt_image(image_of(map.get()), customer().table));
	expect(customer(), Form::kAddressed);
}

TEST_F(ExampleMap, OfTheCustomerMergedOverTheTelevision)
{
	const Example shop = television().merged(customer());
	ASSERT_GT(shop.ips.size(), television().ips.size());
	ASSERT_TRUE(build_example(base, television()));
	ASSERT_TRUE(build_example(sub, customer()));
	ASSERT_TRUE(merge(base.get(), sub.get()));
	expect(shop, Form::kScanned);
	expect_example_pim(base.get(), television(), Form::kBuilt);
	expect_example_pim(sub.get(), customer(), Form::kBuilt);

	const Lines replaced = load(map.get(), std::string("Overdrive_Rate#Rate_60"));
	EXPECT_TRUE(std::any_of(replaced.begin(), replaced.end(), [&](const std::string &line) {
		return line.ends_with(" DATA [" + customer().file("overdrive_60hz.bin") + "]");
	}));

	ASSERT_TRUE(adopt_image(image_of(map.get()), television().table));
	expect(shop, Form::kAddressed);
}

TEST_F(ExampleMap, OfTheCustomerMergedFromAddressFormImages)
{
	const Example shop = television().merged(customer());
	ASSERT_TRUE(build_example(base, television()));
	ASSERT_TRUE(build_example(sub, customer()));
	ImageBytes base_image = image_of(base.get());
	ImageBytes sub_image = image_of(sub.get());
	pim_destroy(base.out());
	pim_destroy(sub.out());
	ASSERT_TRUE(adopt(base, base_image, television().table));
	ASSERT_TRUE(adopt(sub, sub_image, customer().table));
	const std::vector<char> base_bytes = base_image.bytes();
	const std::vector<char> sub_bytes = sub_image.bytes();
	ASSERT_TRUE(merge(base.get(), sub.get(), television().table));
	expect(shop, Form::kAddressed);
	EXPECT_EQ(base_image.bytes(), base_bytes);
	EXPECT_EQ(sub_image.bytes(), sub_bytes);
}

TEST_F(ExampleMap, LabelToStartWithHoldsOneBlockOfEachKind)
{
	ASSERT_TRUE(build_example(map, television()));
	const Lines lines = loaded("Dimming_Level#High");
	std::vector<std::string> kinds;
	for (const std::string &line : lines)
		kinds.push_back(line.substr(0, line.find_first_of(" 0123456789")));
	EXPECT_EQ(kinds,
		  (Lines{"REGISTER", "VREGISTER", "table", "ADDR", "CUS_VREGISTER", "algorithm"}));
	EXPECT_EQ(lines[3], "ADDR {805761120=65537}"); // 0x3006F060 = 0x00010001
	EXPECT_EQ(lines[4], "CUS_VREGISTER {32791=0}");
}

TEST_F(ExampleMap, BuiltTwiceGivesTheSameImage)
{
	ASSERT_TRUE(build_example(map, television()));
	const ImageBytes first = image_of(map.get());
	ASSERT_TRUE(build_example(map, television()));
	EXPECT_EQ(image_of(map.get()).bytes(), first.bytes());
}

} // namespace
