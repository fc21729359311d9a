// SPDX-License-Identifier: MIT
//
// The tree dump.
#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include "extmem/extmem.h"
#include "tests/support/platform.h"
#include "tests/support/small_stack.h"
#include "tests/support/stores.h"

namespace {

using namespace vexil_test;

std::string dump(extmem_builder *store, node_d node, int depth = 0)
{
	take_log();
	extmem_print(store, node, depth);
	return take_log();
}

std::string dump_holder(int tag, const Bytes &payload)
{
	Store store;
	return dump(store, store.holder(tag, payload));
}

/** The dump of a holder that refers to @size bytes at @offset of 16 used ones. */
std::string dump_reference(u8 tag, u32 size, u32 offset)
{
	Bytes image = HandImage(data_node(0, tag, size, offset), Bytes(16, 'x')).bytes();
	extmem_builder store = blank_builder();
	EXPECT_TRUE(extmem_builder_init(&store, image_of(image), static_cast<u32>(image.size())));
	const std::string text = dump(&store, {0, &store});
	extmem_builder_destroy(&store);
	return text;
}

// ---- the names ----

TEST(ExtmemTagName, NamesTwentyFiveTags)
{
	std::vector<std::string> expected(59, "???");
	expected[0] = "UNSPECIFIED";
	expected[1] = "GENERAL";
	expected[16] = "CUSTOM_BEGIN";
	expected[17] = "IP";
	expected[19] = "IP_CONFIG";
	expected[22] = "PROPERTY";
	expected[23] = "RULE";
	expected[24] = "SOURCE";
	expected[26] = "FILE";
	expected[27] = "FUNCTION";
	expected[29] = "KEY DESC";
	expected[30] = "KEY RANGE";
	expected[33] = "DATA_BEGIN";
	expected[34] = "DATA";
	expected[35] = "STRING";
	expected[36] = "REGISTER";
	expected[37] = "VREGISTER";
	expected[38] = "SOURCE";
	expected[39] = "KEY";
	expected[40] = "VALUE";
	expected[41] = "NODE";
	expected[42] = "USEDBITS";
	expected[43] = "SIZE";
	expected[44] = "RANGE";
	expected[58] = "UNUSED_BEGIN";
	ASSERT_EQ(std::size(extmem_tag_name), expected.size());
	for (size_t tag = 0; tag < expected.size(); ++tag)
		EXPECT_EQ(extmem_tag_name[tag], expected[tag]) << "tag " << tag;
}

TEST(ExtmemPrintNode, ShowsIdAndTagName)
{
	for (u8 tag = 0; tag < 33; ++tag) {
		Store store;
		store.fill(7);
		store.add(tag);
		EXPECT_EQ(dump(store, store.at(7)),
			  std::string("[7] tag=") + extmem_tag_name[tag] + "\n");
	}
}

TEST(ExtmemPrintNode, ShowsLargeIds)
{
	Store store;
	store.fill(kMostNodes);
	EXPECT_EQ(dump(store, store.at(65534)), "[65534] tag=GENERAL\n");
}

// ---- holders ----

TEST(ExtmemPrintHolder, FirstDataTagShowsNothing)
{
	EXPECT_EQ(dump_holder(33, Bytes(8)), "");
	Store store;
	EXPECT_EQ(dump(store, store.holder(33, Bytes(8)), 2), "------");
}

TEST(ExtmemPrintHolder, TextIsShown)
{
	EXPECT_EQ(dump_holder(35, text_bytes("setting#member")), "PROP:setting#member\n");
	EXPECT_EQ(dump_holder(35, text_bytes("")), "PROP:\n");
	EXPECT_EQ(dump_holder(35, text_bytes("100%s")), "PROP:100%s\n");
	EXPECT_EQ(dump_holder(35, Bytes{'a', 'b', 0, 'c'}), "PROP:ab\n");
}

TEST(ExtmemPrintHolder, KeyIsShownInWords)
{
	EXPECT_EQ(dump_holder(39, little_endian<u64>({0x1F, 0, 0xFEDCBA9876543210})),
		  "SourceMask(sz=24):[0x1f 0x0 0xfedcba9876543210 ]\n");
}

TEST(ExtmemPrintHolder, RangeIsShownInWords)
{
	EXPECT_EQ(dump_holder(44, little_endian<u64>({3, 0x10})), "RANGE INFO(sz=16):[0x3 0x10 ]\n");
}

TEST(ExtmemPrintHolder, ValuesAreShownAsIds)
{
	EXPECT_EQ(dump_holder(40, little_endian<u16>({1, 65535, 300})),
		  "Values:[ID=1 ID=65535 ID=300 ]\n");
}

TEST(ExtmemPrintHolder, NodeIsItsFirstValue)
{
	EXPECT_EQ(dump_holder(41, little_endian<u16>({513})), "NODEID:513\n");
	EXPECT_EQ(dump_holder(41, little_endian<u16>({7, 8})), "NODEID:7\n");
}

TEST(ExtmemPrintHolder, SizeIsTheLowHalfOfItsFirstValue)
{
	EXPECT_EQ(dump_holder(43, little_endian<u64>({4294967295})), "SIZE:4294967295\n");
	EXPECT_EQ(dump_holder(43, little_endian<u64>({0x500000007})), "SIZE:7\n");
	EXPECT_EQ(dump_holder(43, little_endian<u64>({9, 10})), "SIZE:9\n");
}

TEST(ExtmemPrintHolder, PartOfAValueIsNotShown)
{
	Bytes key = little_endian<u64>({5});
	key.resize(15, 0xEE);
	EXPECT_EQ(dump_holder(39, key), "SourceMask(sz=15):[0x5 ]\n");
	EXPECT_EQ(dump_holder(44, key), "RANGE INFO(sz=15):[0x5 ]\n");
	EXPECT_EQ(dump_holder(40, {1, 0, 2, 0, 3}), "Values:[ID=1 ID=2 ]\n");
	EXPECT_EQ(dump_holder(39, Bytes(7, 0xEE)), "SourceMask(sz=7):[]\n");
}

TEST(ExtmemPrintHolder, EveryOtherTagIsShownByName)
{
	for (int tag = 34; tag < 256; ++tag) {
		if (tag == 35 || (tag >= 39 && tag <= 41) || tag == 43 || tag == 44)
			continue;
		const std::string name = tag <= 58 ? extmem_tag_name[tag] : "???";
		Store store;
		store.fill(2);
		EXPECT_EQ(dump(store, store.holder(tag, Bytes(8))), "[2] Data tag=" + name + "\n") << tag;
	}
}

TEST(ExtmemPrintHolder, UnusableRecordsHaveAFixedForm)
{
	const struct {
		u8 tag;
		const char *line;
	} rows[] = {
		{33, ""},
		{34, "[0] Data tag=DATA\n"},
		{35, "PROP:(null)\n"},
		{39, "SourceMask(sz=0):[]\n"},
		{40, "Values:[]\n"},
		{41, "NODEID:65535\n"},
		{43, "SIZE:0\n"},
		{44, "RANGE INFO(sz=0):[]\n"},
	};
	const struct {
		const char *name;
		u32 size, offset;
	} references[] = {
		{"never attached", 0xFFFFFFFF, 0},  {"empty", 0, 0},
		{"behind the data", 8, 16},         {"longer than the data", 17, 0},
		{"offset that wraps", 16, 0xFFFFFFF8},
	};
	for (const auto &row : rows) {
		for (const auto &reference : references)
			EXPECT_EQ(dump_reference(row.tag, reference.size, reference.offset), row.line)
				<< int{row.tag} << ", " << reference.name;
	}
}

TEST(ExtmemPrintHolder, TextWithoutNulIsNoText)
{
	EXPECT_EQ(dump_holder(35, Bytes(8, 'x')), "PROP:(null)\n");
	EXPECT_EQ(dump_holder(35, Bytes{'x', 'y'}), "PROP:(null)\n") << "the padding is not the text's";
}

TEST(ExtmemPrintHolder, RecordsMayStandAtAnyAddress)
{
	Bytes image = HandImage(joined({tree_node(0, 1, 1), data_node(1, 39, 16, 1)}),
				joined({Bytes(1), little_endian<u64>({1, 2}), Bytes(7)}))
			      .bytes();
	extmem_builder store = blank_builder();
	ASSERT_TRUE(extmem_builder_init(&store, image_of(image), static_cast<u32>(image.size())));
	EXPECT_EQ(dump(&store, {1, &store}), "SourceMask(sz=16):[0x1 0x2 ]\n");
	extmem_builder_destroy(&store);
}

// ---- the walk ----

// 0 GENERAL
//   1 IP -> 3 PROPERTY
//     2 GENERAL -> 4 GENERAL   5 "name" below 3
void small_tree(Store &store)
{
	for (const int tag : {1, 17, 1, 22, 1})
		store.add(tag);
	const node_d text = store.holder(EXTMEM_TAG_STRING_HOLDER, text_bytes("name"));
	ASSERT_TRUE(extmem_append_child(store.at(0), store.at(1)));
	ASSERT_TRUE(extmem_append_next(store.at(1), store.at(3)));
	ASSERT_TRUE(extmem_append_child(store.at(1), store.at(2)));
	ASSERT_TRUE(extmem_append_next(store.at(2), store.at(4)));
	ASSERT_TRUE(extmem_append_child(store.at(3), text));
}

TEST(ExtmemPrint, GoesDownBeforeItGoesOn)
{
	Store store;
	small_tree(store);
	EXPECT_EQ(dump(store, store.at(0)), "[0] tag=GENERAL\n"
					    "---[1] tag=IP\n"
					    "------[2] tag=GENERAL\n"
					    "------[4] tag=GENERAL\n"
					    "---[3] tag=PROPERTY\n"
					    "------PROP:name\n");
}

TEST(ExtmemPrint, StartsAtTheDepthGiven)
{
	Store store;
	small_tree(store);
	EXPECT_EQ(dump(store, store.at(3), 2), "------[3] tag=PROPERTY\n"
					       "---------PROP:name\n");
}

TEST(ExtmemPrint, IncludesTheFollowingSiblings)
{
	Store store;
	small_tree(store);
	EXPECT_EQ(dump(store, store.at(2), 1), "---[2] tag=GENERAL\n"
					       "---[4] tag=GENERAL\n");
}

TEST(ExtmemPrint, InvalidNodeIsNothing)
{
	Store store;
	small_tree(store);
	for (const node_d node : {kInvalid, store.at(kNone), store.at(6), node_d{0, nullptr}})
		EXPECT_EQ(dump(store, node, 1), "") << node;
	EXPECT_EQ(dump(nullptr, store.at(0)), "");
}

TEST(ExtmemPrint, LinksOutsideTheStoreAreNothing)
{
	Bytes image = HandImage(joined({tree_node(0, 1, 7, 1), tree_node(1, 1, 2, 9)}), Bytes(8)).bytes();
	extmem_builder store = blank_builder();
	ASSERT_TRUE(extmem_builder_init(&store, image_of(image), static_cast<u32>(image.size())));
	EXPECT_EQ(dump(&store, {0, &store}), "[0] tag=GENERAL\n[1] tag=GENERAL\n");
	extmem_builder_destroy(&store);
}

TEST(ExtmemPrint, DataHolderHasNoSiblings)
{
	// The upper half of a holder's size reads as an id: node 1 here, and the root for short ones.
	Store store;
	store.fill(2);
	store.holder(EXTMEM_TAG_STRING_HOLDER, text_bytes("short"));
	ASSERT_TRUE(extmem_append_child(store.at(0), store.at(2)));
	EXPECT_EQ(dump(store, store.at(0)), "[0] tag=GENERAL\n---PROP:short\n");

	Bytes image = HandImage(joined({tree_node(0, 1, 2), tree_node(1, 1),
					data_node(2, 34, 0x00010004, 0)}),
				Bytes(8))
			      .bytes();
	extmem_builder adopted = blank_builder();
	ASSERT_TRUE(extmem_builder_init(&adopted, image_of(image), static_cast<u32>(image.size())));
	EXPECT_EQ(dump(&adopted, {0, &adopted}), "[0] tag=GENERAL\n---[2] Data tag=DATA\n");
	extmem_builder_destroy(&adopted);
}

TEST(ExtmemPrint, HolderLastAmongSiblingsIsShown)
{
	Store store;
	store.fill(2);
	store.holder(EXTMEM_TAG_STRING_HOLDER, text_bytes("preset"));
	ASSERT_TRUE(extmem_append_child(store.at(0), store.at(1)));
	ASSERT_TRUE(extmem_append_next(store.at(1), store.at(2)));
	EXPECT_EQ(dump(store, store.at(0)), "[0] tag=GENERAL\n"
					    "---[1] tag=GENERAL\n"
					    "---PROP:preset\n");
}

TEST(ExtmemPrint, GoesThroughTheHookOfTheFirstStoreOverTheNodesOfTheOther)
{
	Store out;
	Store nodes;
	small_tree(nodes);
	Printed printed;
	out->print = Printed::print;
	EXPECT_EQ(dump(out, nodes.at(3), 1), "") << "not to the log";
	EXPECT_EQ(printed.take(), "---[3] tag=PROPERTY\n------PROP:name\n");
}

TEST(ExtmemPrint, ChangesNothing)
{
	Store store;
	small_tree(store);
	const BufferState nodes(store->node_buffer);
	const BufferState data(store->data_buffer);
	dump(store, store.at(0));
	EXPECT_TRUE(BufferState(store->node_buffer) == nodes);
	EXPECT_TRUE(BufferState(store->data_buffer) == data);
	EXPECT_EQ(store->err_code, EXTMEM_SUCCESS);
}

TEST(ExtmemPrint, WideTreeIsShownWhole)
{
	// Each child has a child of its own, so that every sibling waits while its neighbour is shown.
	constexpr u16 kChildren = 500;
	Store store;
	store.fill(1);
	node_d last = kInvalid;
	std::string expected = "[0] tag=GENERAL\n";
	for (u16 i = 0; i < kChildren; ++i) {
		const node_d child = store.add(EXTMEM_TAG_GENERAL);
		const node_d ip = store.add(EXTMEM_TAG_IP);
		last = extmem_append_child_cond(store.at(0), last, child);
		ASSERT_TRUE(extmem_append_child(child, ip));
		expected += "---[" + std::to_string(child.id) + "] tag=GENERAL\n";
		expected += "------[" + std::to_string(ip.id) + "] tag=IP\n";
	}
	EXPECT_EQ(dump(store, store.at(0)), expected);
}

TEST(ExtmemPrint, SharedTextIsShownForEachOwner)
{
	Store store;
	store.fill(3);
	store.holder(EXTMEM_TAG_STRING_HOLDER, text_bytes("shared"));
	ASSERT_TRUE(extmem_append_child(store.at(0), store.at(1)));
	ASSERT_TRUE(extmem_append_next(store.at(1), store.at(2)));
	ASSERT_TRUE(extmem_append_child(store.at(1), store.at(3)));
	ASSERT_TRUE(extmem_append_child(store.at(2), store.at(3)));
	EXPECT_EQ(dump(store, store.at(0)), "[0] tag=GENERAL\n"
					    "---[1] tag=GENERAL\n"
					    "------PROP:shared\n"
					    "---[2] tag=GENERAL\n"
					    "------PROP:shared\n");
}

// ---- long and deep trees ----

TEST(ExtmemPrintDepth, SiblingsNeedNoStack)
{
	constexpr size_t kSiblings = 20000;
	Store store;
	store.fill(kSiblings);
	std::string expected;
	for (size_t i = 0; i < kSiblings; ++i) {
		if (i > 0) {
			ASSERT_TRUE(extmem_append_next(store.at(i - 1), store.at(i)));
		}
		expected += "[" + std::to_string(i) + "] tag=GENERAL\n";
	}
	take_log();
	on_small_stack([&] { extmem_print(store, store.at(0), 0); });
	EXPECT_TRUE(take_log() == expected);
}

TEST(ExtmemPrintDepth, ChainOfChildrenNeedsNoStack)
{
	constexpr size_t kDeep = 1500;
	Store store;
	store.fill(kDeep);
	std::string expected;
	for (size_t i = 0; i < kDeep; ++i) {
		if (i > 0) {
			ASSERT_TRUE(extmem_append_child(store.at(i - 1), store.at(i)));
		}
		for (size_t depth = 0; depth < i; ++depth)
			expected += "---";
		expected += "[" + std::to_string(i) + "] tag=GENERAL\n";
	}
	take_log();
	on_small_stack([&] { extmem_print(store, store.at(0), 0); });
	EXPECT_TRUE(take_log() == expected);
}

TEST(ExtmemPrintDepth, StaircaseNeedsNoStack)
{
	// Every node of the chain has a sibling that waits until all below is shown.
	constexpr u16 kSteps = 700;
	Store store;
	store.fill(1);
	std::string down = "[0] tag=GENERAL\n";
	std::string up;
	std::string indent;
	node_d step = store.at(0);
	for (u16 i = 0; i < kSteps; ++i) {
		indent += "---";
		const node_d child = store.add(EXTMEM_TAG_GENERAL);
		const node_d sibling = store.add(EXTMEM_TAG_PROPERTY);
		ASSERT_TRUE(extmem_append_child(step, child));
		ASSERT_TRUE(extmem_append_next(child, sibling));
		down += indent + "[" + std::to_string(child.id) + "] tag=GENERAL\n";
		up = indent + "[" + std::to_string(sibling.id) + "] tag=PROPERTY\n" + up;
		step = child;
	}
	take_log();
	on_small_stack([&] { extmem_print(store, store.at(0), 0); });
	EXPECT_TRUE(take_log() == down + up);
}

// ---- damaged images ----

/** What a dump printed, and what it reported. */
struct Dump {
	std::vector<std::string> lines;
	std::string report;
};

Dump dump_damaged(const Bytes &nodes, u16 from = 0)
{
	Bytes image = HandImage(nodes, Bytes(8)).bytes();
	extmem_builder store = blank_builder();
	EXPECT_TRUE(extmem_builder_init(&store, image_of(image), static_cast<u32>(image.size())));
	Printed printed;
	store.print = Printed::print;
	take_log();
	on_small_stack([&] { extmem_print(&store, {from, &store}, 0); });
	Dump result;
	const std::string text = printed.take();
	for (size_t begin = 0; begin < text.size();) {
		const size_t end = text.find('\n', begin);
		result.lines.push_back(text.substr(begin, end - begin));
		begin = end + 1;
	}
	result.report = take_log();
	extmem_builder_destroy(&store);
	return result;
}

bool is_report(const std::string &text)
{
	return std::regex_match(text, std::regex("\\[extmem_print\\]\\[[0-9]+\\]vexil lib fail!!\n"));
}

TEST(ExtmemPrintDamaged, sibling_of_itself)
{
	const Dump dump = dump_damaged(tree_node(0, 1, kNone, 0));
	EXPECT_EQ(dump.lines, (std::vector<std::string>(2, "[0] tag=GENERAL")));
	EXPECT_TRUE(is_report(dump.report)) << dump.report;
}

TEST(ExtmemPrintDamaged, cyclic_siblings)
{
	const Dump dump = dump_damaged(joined({tree_node(0, 1, kNone, 1), tree_node(1, 17, kNone, 2),
					       tree_node(2, 22, kNone, 1)}));
	EXPECT_EQ(dump.lines, (std::vector<std::string>{"[0] tag=GENERAL", "[1] tag=IP",
							"[2] tag=PROPERTY", "[1] tag=IP",
							"[2] tag=PROPERTY", "[1] tag=IP"}));
	EXPECT_TRUE(is_report(dump.report)) << dump.report;
}

TEST(ExtmemPrintDamaged, child_of_itself)
{
	const Dump dump = dump_damaged(tree_node(0, 1, 0));
	EXPECT_EQ(dump.lines, (std::vector<std::string>{"[0] tag=GENERAL", "---[0] tag=GENERAL"}));
	EXPECT_TRUE(is_report(dump.report)) << dump.report;
}

TEST(ExtmemPrintDamaged, cyclic_children)
{
	const Dump dump = dump_damaged(joined({tree_node(0, 1, 1), tree_node(1, 17, 0)}));
	EXPECT_EQ(dump.lines, (std::vector<std::string>{"[0] tag=GENERAL", "---[1] tag=IP",
							"------[0] tag=GENERAL",
							"---------[1] tag=IP"}));
	EXPECT_TRUE(is_report(dump.report)) << dump.report;
}

TEST(ExtmemPrintDamaged, child_and_sibling_of_itself)
{
	const Dump dump = dump_damaged(tree_node(0, 1, 0, 0));
	EXPECT_EQ(dump.lines, (std::vector<std::string>{"[0] tag=GENERAL", "---[0] tag=GENERAL"}));
	EXPECT_TRUE(is_report(dump.report)) << dump.report;
}

TEST(ExtmemPrintDamaged, every_node_twice_its_child)
{
	// Each node's child and sibling are the next node: two to the power of sixty lines, undamaged.
	constexpr u16 kNodes = 60;
	Bytes nodes;
	for (u16 id = 0; id < kNodes; ++id) {
		const u16 next = id + 1 < kNodes ? static_cast<u16>(id + 1) : kNone;
		const Bytes node = tree_node(id, 1, next, next);
		nodes.insert(nodes.end(), node.begin(), node.end());
	}
	const Dump dump = dump_damaged(nodes);
	EXPECT_EQ(dump.lines.size(), size_t{2 * kNodes});
	EXPECT_TRUE(is_report(dump.report)) << dump.report;
}

TEST(ExtmemPrintDamaged, all_siblings_lead_back)
{
	constexpr u16 kNodes = 5000;
	Bytes nodes;
	for (u16 id = 0; id < kNodes; ++id) {
		const Bytes node = tree_node(id, 1, kNone, static_cast<u16>((id + 1) % kNodes));
		nodes.insert(nodes.end(), node.begin(), node.end());
	}
	const Dump dump = dump_damaged(nodes);
	EXPECT_EQ(dump.lines.size(), size_t{2 * kNodes});
	EXPECT_EQ(dump.lines.back(), "[4999] tag=GENERAL");
	EXPECT_TRUE(is_report(dump.report)) << dump.report;
}

TEST(ExtmemPrintDamaged, ReportGoesToTheKernelLogOnly)
{
	const Dump dump = dump_damaged(tree_node(0, 1, kNone, 0));
	for (const std::string &line : dump.lines)
		EXPECT_EQ(line.find("vexil lib fail"), std::string::npos);
	EXPECT_TRUE(is_report(dump.report));
}

size_t counted_pieces;
size_t counted_lines;

[[gnu::format(printf, 1, 2)]] int count_only(const char *format, ...)
{
	++counted_pieces;
	counted_lines += format[0] == '[';
	return 0;
}

// Shown whole, a chain of all nodes would be two thousand million indents in no more lines than a
// sound image has.
TEST(ExtmemPrintDamaged, chain_of_all_nodes)
{
	constexpr size_t kMostPieces = size_t{1} << 27;
	Store store;
	store.fill(kMostNodes);
	for (size_t i = 1; i < kMostNodes; ++i)
		ASSERT_TRUE(extmem_append_child(store.at(i - 1), store.at(i)));
	store->print = count_only;
	counted_pieces = counted_lines = 0;
	take_log();
	on_small_stack([&] { extmem_print(store, store.at(0), 0); });
	EXPECT_TRUE(is_report(take_log()));
	EXPECT_GT(counted_lines, 4096u);
	EXPECT_LT(counted_lines, kMostNodes);
	EXPECT_LT(counted_pieces, kMostPieces);
}

TEST(ExtmemPrint, WithoutMemoryForItsStackShowsAPartOnly)
{
	constexpr u16 kSteps = 40;
	Store store;
	store.fill(1);
	node_d step = store.at(0);
	for (u16 i = 0; i < kSteps; ++i) {
		const node_d child = store.add(EXTMEM_TAG_GENERAL);
		ASSERT_TRUE(extmem_append_child(step, child));
		ASSERT_TRUE(extmem_append_next(child, store.add(EXTMEM_TAG_PROPERTY)));
		step = child;
	}
	const std::string whole = dump(store, store.at(0));
	Printed printed;
	store->print = Printed::print;
	std::string report;
	{
		const Refuse refuse = Refuse::from(1);
		report = dump(store, store.at(0));
		EXPECT_TRUE(refuse.happened());
	}
	const std::string part = printed.take();
	EXPECT_LT(part.size(), whole.size());
	EXPECT_EQ(part, whole.substr(0, part.size()));
	EXPECT_TRUE(is_report(report)) << report;
}

} // namespace
