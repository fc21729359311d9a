// SPDX-License-Identifier: MIT
#include "pim/pim.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/pim_images.h"
#include "tests/support/pim_json.h"
#include "tests/support/platform.h"

namespace {

using namespace vexil_test;

constexpr std::size_t kMostNodes = 65535;
constexpr std::size_t kNodesOfAFile = 5;
constexpr std::size_t kHandlers = 64;

const std::string kWrongDash = "[ctrie_insert][176]insert wrong string member = 45\n";

class PimFile : public PimTest {
protected:
	bool insert_file(const std::string &name, const std::string &bytes)
	{
		return pim_insert_file(map.get(), name.c_str(), bytes.data(),
				       static_cast<u32>(bytes.size()));
	}
	[[nodiscard]] int find(const char *name) const { return ctrie_find(&map->file_map, name); }
	// Ids of the root's children.
	[[nodiscard]] std::vector<u16> root_list() const
	{
		std::vector<u16> ids;
		for (node_d node = extmem_get_child(map->root); extmem_node_isvalid(node);
		     node = extmem_get_next(node))
			ids.push_back(node.id);
		return ids;
	}
};

TEST_F(PimFile, IsAFileNodeWithItsBytesAndItsName)
{
	EXPECT_TRUE(insert_file("Table.bin", "0123456789"));
	EXPECT_EQ(nodes(map.get()),
		  (Lines{"0 GENERAL c5", "1 DATA [0123456789]", "2 FILE c1 n3", "3 PROPERTY c4",
			 "4 STRING 'Table.bin'", "5 GENERAL c2"}));
	EXPECT_EQ(find("table.BIN"), 2);
}

TEST_F(PimFile, IsAppendedToTheRootsList)
{
	EXPECT_TRUE(insert_file("a", "1"));
	EXPECT_TRUE(insert_file("b", "2"));
	EXPECT_TRUE(insert("{'PqFuncGroups': {'IP': {}}}"));
	EXPECT_TRUE(insert_file("c", "3"));
	const std::vector<u16> list = root_list();
	ASSERT_EQ(list.size(), 4u);
	EXPECT_EQ(list[0], 5);
	EXPECT_EQ(list[1], 10);
	EXPECT_EQ(extmem_fetch_tag(extmem_get_child(node_at(map.get(), list[2]))), EXTMEM_TAG_IP);
	EXPECT_EQ(extmem_get_child(node_at(map.get(), list[3])).id, find("c"));
}

TEST_F(PimFile, IsAppendedBehindAHolderThatCameOtherwise)
{
	EXPECT_TRUE(insert_file("a", "1"));
	const node_d holder = extmem_request_node(&map->builder, EXTMEM_TAG_GENERAL);
	ASSERT_TRUE(extmem_append_next(extmem_find_tail(extmem_get_child(map->root)), holder));
	EXPECT_TRUE(insert_file("b", "2"));
	EXPECT_EQ(root_list(), (std::vector<u16>{5, holder.id, 11}));
}

TEST_F(PimFile, BytesAreKeptExactly)
{
	const std::string bytes("\0\x01\xFF\0end\0", 8);
	EXPECT_TRUE(insert_file("a", bytes));
	EXPECT_TRUE(insert_file("b", "x"));
	EXPECT_EQ(node(1), "1 DATA [" + bytes + "]");
	EXPECT_EQ(node(6), "6 DATA [x]");
}

TEST_F(PimFile, SizesAndOffsetsAreThoseOfTheRecords)
{
	EXPECT_TRUE(insert_file("abc", "0123456789")); // 16 and 8 bytes
	EXPECT_TRUE(insert_file("longname", "x"));     // 8 and 16 bytes
	const data_d first = extmem_copy_from_node(node_at(map.get(), 1));
	const data_d first_name = extmem_copy_from_node(node_at(map.get(), 4));
	const data_d second = extmem_copy_from_node(node_at(map.get(), 6));
	const data_d second_name = extmem_copy_from_node(node_at(map.get(), 9));
	EXPECT_EQ(first.offset, 0u);
	EXPECT_EQ(first.size, 10u);
	EXPECT_EQ(first_name.offset, 16u);
	EXPECT_EQ(first_name.size, 4u);
	EXPECT_EQ(second.offset, 24u);
	EXPECT_EQ(second.size, 1u);
	EXPECT_EQ(second_name.offset, 32u);
	EXPECT_EQ(second_name.size, 9u);
	EXPECT_EQ(map->builder.data_buffer.buf_used, 48u);
}

TEST_F(PimFile, IsCopied)
{
	char bytes[] = "before";
	char name[] = "name";
	EXPECT_TRUE(pim_insert_file(map.get(), name, bytes, 6));
	bytes[0] = name[0] = 'X';
	EXPECT_EQ(node(1), "1 DATA [before]");
	EXPECT_EQ(node(4), "4 STRING 'name'");
}

TEST_F(PimFile, LargerThanTheStoreGrowsIt)
{
	const std::string bytes(100000, 'x');
	EXPECT_TRUE(insert_file("a", bytes));
	EXPECT_EQ(node(1), "1 DATA [" + bytes + "]");
	EXPECT_EQ(map->builder.data_buffer.buf_max, 131072u);
}

TEST_F(PimFile, BytesMayLieInTheStoreItself)
{
	std::string bytes(1000, 'x');
	bytes[0] = 'a';
	bytes[999] = 'z';
	EXPECT_TRUE(insert_file("a", bytes));
	const auto *stored = static_cast<const char *>(
		extmem_fetch_data(extmem_copy_from_node(node_at(map.get(), 1))));
	ASSERT_TRUE(stored);
	EXPECT_TRUE(pim_insert_file(map.get(), "b", stored, 1000)); // the store grows
	EXPECT_EQ(node(1), "1 DATA [" + bytes + "]");
	EXPECT_EQ(node(6), "6 DATA [" + bytes + "]");
}

TEST_F(PimFile, OfManyAllAreFound)
{
	constexpr int kFiles = 3000;
	for (int i = 0; i < kFiles; ++i)
		ASSERT_TRUE(insert_file("f" + std::to_string(i), std::to_string(i)));
	for (int i = 0; i < kFiles; ++i)
		ASSERT_EQ(find(("F" + std::to_string(i)).c_str()), 5 * i + 2);
	EXPECT_EQ(root_list().size(), std::size_t{kFiles});
}

TEST_F(PimFile, WithoutAMapANameOrBytesIsFalse)
{
	EXPECT_FALSE(pim_insert_file(nullptr, "a", "0", 1));
	EXPECT_FALSE(pim_insert_file(map.get(), nullptr, "0", 1));
	EXPECT_FALSE(pim_insert_file(map.get(), "a", nullptr, 1));
	EXPECT_FALSE(pim_insert_file(map.get(), "a", "0", 0));
	EXPECT_EQ(nodes(map.get()), Lines{"0 GENERAL"});
	EXPECT_EQ(map->file_map.buf_used, 0u);
}

TEST_F(PimFile, RepeatedNameIsReportedAndChangesNothing)
{
	EXPECT_TRUE(insert_file("table.bin", "one"));
	const std::string before = store_bytes(map.get());
	EXPECT_FALSE(insert_file("Table.BIN", "two"));
	EXPECT_EQ(take_log(), "[VEXIL][PIM][pim_insert_file] duplicated file Table.BIN\n");
	EXPECT_EQ(store_bytes(map.get()), before);
	EXPECT_EQ(find("table.bin"), 2);
	EXPECT_EQ(map->file_map.buf_used, 9u);
}

std::string hook_text;

int keep_text(const char *format, ...)
{
	char line[256];
	va_list arguments;
	va_start(arguments, format);
	const int length = std::vsnprintf(line, sizeof line, format, arguments);
	va_end(arguments);
	hook_text += line;
	return length;
}

TEST_F(PimFile, RepeatedNameIsReportedThroughTheStoresPlainHook)
{
	EXPECT_TRUE(insert_file("a", "1"));
	map->builder.print = keep_text;
	hook_text.clear();
	EXPECT_FALSE(insert_file("a", "2"));
	EXPECT_EQ(hook_text, "[VEXIL][PIM][pim_insert_file] duplicated file a\n");
	EXPECT_EQ(take_log(), "");
}

TEST_F(PimFile, NameThatTheIndexRefusesIsNotInTheImage)
{
	EXPECT_TRUE(insert_file("a", "1"));
	EXPECT_FALSE(insert_file("a-b", "2"));
	EXPECT_EQ(take_log(), kWrongDash);
	EXPECT_FALSE(insert_file("", "3"));
	EXPECT_TRUE(insert_file("b", "4"));
	const std::vector<u16> list = root_list();
	ASSERT_EQ(list.size(), 2u);
	EXPECT_EQ(extmem_get_child(node_at(map.get(), list[0])).id, find("a"));
	EXPECT_EQ(extmem_get_child(node_at(map.get(), list[1])).id, find("b"));
	ImageBytes image = image_of(map.get());
	Map adopted;
	EXPECT_TRUE(adopt(adopted, image));
	EXPECT_EQ(take_log(), "");
}

TEST_F(PimFile, NameThatTheIndexRefusesStillTakesItsNodes)
{
	EXPECT_FALSE(insert_file("a-b", "2"));
	EXPECT_EQ(take_log(), kWrongDash);
	EXPECT_EQ(nodes(map.get()), (Lines{"0 GENERAL", "1 DATA [2]", "2 FILE c1 n3",
					   "3 PROPERTY c4", "4 STRING 'a-b'", "5 GENERAL c2"}));
}

TEST_F(PimFile, ComesBackFromAnImage)
{
	EXPECT_TRUE(insert_file("a", "1"));
	EXPECT_TRUE(insert_file("b", "22"));
	ImageBytes image = image_of(map.get());
	Map adopted;
	ASSERT_TRUE(adopt(adopted, image));
	EXPECT_EQ(ctrie_find(&adopted->file_map, "a"), find("a"));
	EXPECT_EQ(ctrie_find(&adopted->file_map, "b"), find("b"));
	EXPECT_FALSE(pim_insert_file(adopted.get(), "b", "3", 1));
	EXPECT_EQ(take_log(), "[VEXIL][PIM][pim_insert_file] duplicated file b\n");
}

TEST_F(PimFile, GoesIntoTheTailOfAnAdoptedImage)
{
	EXPECT_TRUE(insert_file("a", "1"));
	ImageBytes image = image_of(map.get());
	Map adopted;
	ASSERT_TRUE(adopt(adopted, image));
	EXPECT_TRUE(pim_insert_file(adopted.get(), "b", "2", 1));
	EXPECT_EQ(nodes(adopted.get(), 5),
		  (Lines{"5 GENERAL c2 n10", "6 DATA [2]", "7 FILE c6 n8", "8 PROPERTY c9",
			 "9 STRING 'b'", "10 GENERAL c7"}));
	EXPECT_EQ(ctrie_find(&adopted->file_map, "b"), 7);
}

TEST_F(PimFile, IsRefusedWhenAnAdoptedImageIsFull)
{
	EXPECT_TRUE(insert_file("a", "1"));
	ImageBytes image = image_of(map.get());
	Map adopted;
	ASSERT_TRUE(adopt(adopted, image));
	const std::string bytes(1024, 'x');
	EXPECT_FALSE(pim_insert_file(adopted.get(), "b", bytes.data(), 1024));
	EXPECT_EQ(adopted->builder.err_code, EXTMEM_NOMEM);
	EXPECT_EQ(ctrie_find(&adopted->file_map, "b"), INT_MIN);
	EXPECT_EQ(adopted->builder.data_buffer.buf_max, 1024u);
	Map again;
	EXPECT_TRUE(adopt(again, image));
}

// The nodes and the data run out at each of the requests in turn.
TEST_F(PimFile, WithoutMemoryNothingIsLinkedAndTheCallCanBeRepeated)
{
	constexpr std::size_t kNodesThatFit = 63; // the 64th asks for more memory
	for (std::size_t room = 0; room <= kNodesOfAFile; ++room) {
		for (const u32 data_left : {0u, 8u, 16u, 1000u}) {
			for (std::size_t nth = 1;; ++nth) {
				SCOPED_TRACE(testing::Message()
					     << room << " nodes and " << data_left
					     << " bytes left, refusal " << nth);
				ASSERT_TRUE(map.init());
				ASSERT_TRUE(insert_file("a", "1"));
				while (node_count(map.get()) < kNodesThatFit - room)
					extmem_request_node(&map->builder, EXTMEM_TAG_GENERAL);
				const std::size_t used = map->builder.data_buffer.buf_used;
				if (used + data_left < 1000)
					extmem_request_data(
						&map->builder,
						static_cast<u32>(1016 - data_left - used));
				bool result = false, refused = false;
				{
					const Refuse one = Refuse::only(nth);
					result = insert_file("b", "12345678");
					refused = one.happened();
				}
				if (!refused) {
					EXPECT_TRUE(result);
					break;
				}
				EXPECT_FALSE(result);
				EXPECT_EQ(find("b"), INT_MIN);
				EXPECT_EQ(root_list(), std::vector<u16>{5});
				EXPECT_TRUE(insert_file("b", "12345678"));
				EXPECT_EQ(root_list().size(), 2u);
				ImageBytes image = image_of(map.get());
				Map adopted;
				EXPECT_TRUE(adopt(adopted, image));
				EXPECT_EQ(ctrie_find(&adopted->file_map, "b"), find("b"));
			}
		}
	}
}

TEST_F(PimFile, WithoutNodesNothingIsLinked)
{
	ASSERT_TRUE(insert_file("a", "1"));
	while (node_count(map.get()) < kMostNodes - kNodesOfAFile)
		extmem_request_node(&map->builder, EXTMEM_TAG_GENERAL);
	const extmem_builder full = map->builder;
	for (std::size_t left = 0; left < kNodesOfAFile; ++left) {
		SCOPED_TRACE(left);
		map->builder.node_buffer.buf_used = (kMostNodes - left) * 16;
		EXPECT_FALSE(insert_file("b", "2"));
		EXPECT_EQ(find("b"), INT_MIN);
		EXPECT_EQ(root_list(), std::vector<u16>{5});
		EXPECT_EQ(map->builder.err_code, EXTMEM_OUT_OF_RANGE);
	}
	map->builder.node_buffer.buf_used = full.node_buffer.buf_used;
	EXPECT_TRUE(insert_file("b", "2"));
	EXPECT_EQ(node_count(map.get()), kMostNodes);
	EXPECT_EQ(find("b"), 65531);
}

// ---- handlers ----

bool handler_a(int, const char *, u32, void *)
{
	return true;
}
bool handler_b(int, const char *, u32, void *)
{
	return false;
}
bool algorithm_a(int, const char *, u32, const char *, u32)
{
	return true;
}
bool algorithm_b(int, const char *, u32, const char *, u32)
{
	return false;
}

class PimHandler : public PimTest {
protected:
	bool insert_handler(const std::string &label, vexil_callback fn = handler_a)
	{
		return pim_insert_handler(map.get(), label.c_str(), fn);
	}
	[[nodiscard]] int find(const char *label) const { return ctrie_find(&map->fn_map, label); }
};

TEST_F(PimHandler, TakesTheNextPlace)
{
	EXPECT_TRUE(insert_handler("Gamma", handler_a));
	EXPECT_TRUE(insert_handler("dither", handler_b));
	EXPECT_EQ(map->fn_list_num, 2u);
	EXPECT_EQ(map->fn_list[0], handler_a);
	EXPECT_EQ(map->fn_list[1], handler_b);
	EXPECT_EQ(find("gamma"), 0);
	EXPECT_EQ(find("DITHER"), 1);
}

TEST_F(PimHandler, RegisteredAgainKeepsItsPlace)
{
	EXPECT_TRUE(insert_handler("gamma", handler_a));
	EXPECT_TRUE(insert_handler("dither", handler_a));
	EXPECT_TRUE(insert_handler("GAMMA", handler_b));
	EXPECT_EQ(map->fn_list_num, 2u);
	EXPECT_EQ(map->fn_list[0], handler_b);
	EXPECT_EQ(map->fn_list[1], handler_a);
	EXPECT_EQ(find("gamma"), 0);
}

TEST_F(PimHandler, MayBeNull)
{
	EXPECT_TRUE(insert_handler("gamma", nullptr));
	EXPECT_EQ(map->fn_list_num, 1u);
	EXPECT_EQ(map->fn_list[0], nullptr);
	EXPECT_TRUE(insert_handler("gamma", handler_a));
	EXPECT_TRUE(insert_handler("gamma", nullptr));
	EXPECT_EQ(map->fn_list[0], nullptr);
}

TEST_F(PimHandler, WithoutAMapOrALabelIsFalse)
{
	EXPECT_FALSE(pim_insert_handler(nullptr, "gamma", handler_a));
	EXPECT_FALSE(pim_insert_handler(map.get(), nullptr, handler_a));
	EXPECT_EQ(map->fn_list_num, 0u);
}

TEST_F(PimHandler, SixtyFifthLabelIsRefused)
{
	for (std::size_t i = 0; i < kHandlers; ++i) {
		EXPECT_TRUE(insert_handler("h" + std::to_string(i)));
		EXPECT_EQ(find(("h" + std::to_string(i)).c_str()), static_cast<int>(i));
	}
	EXPECT_FALSE(insert_handler("one more"));
	EXPECT_EQ(find("one more"), INT_MIN);
	EXPECT_EQ(map->fn_list_num, kHandlers);
	for (std::size_t i = 0; i < kHandlers; ++i) {
		EXPECT_TRUE(insert_handler("H" + std::to_string(i), handler_b));
		EXPECT_EQ(map->fn_list[i], handler_b);
	}
	EXPECT_EQ(map->fn_list_num, kHandlers);
}

TEST_F(PimHandler, LabelThatTheIndexRefusesTakesAPlace)
{
	EXPECT_FALSE(insert_handler("a-b", handler_b));
	EXPECT_EQ(take_log(), kWrongDash);
	EXPECT_EQ(map->fn_list_num, 1u);
	EXPECT_EQ(map->fn_list[0], handler_b);
	EXPECT_TRUE(insert_handler("gamma"));
	EXPECT_EQ(find("gamma"), 1);
}

TEST_F(PimHandler, EmptyLabelTakesAPlace)
{
	EXPECT_FALSE(insert_handler(""));
	EXPECT_EQ(map->fn_list_num, 1u);
}

TEST_F(PimHandler, RefusedLabelsUseUpAllPlaces)
{
	for (std::size_t i = 0; i < kHandlers; ++i)
		EXPECT_FALSE(insert_handler("a-b"));
	EXPECT_EQ(take_log_lines().size(), kHandlers);
	EXPECT_EQ(map->fn_list_num, kHandlers);
	EXPECT_FALSE(insert_handler("gamma"));
	EXPECT_FALSE(insert_handler("a-b"));
	EXPECT_EQ(take_log(), "");
}

TEST_F(PimHandler, WithoutMemoryForItsLabelTakesAPlace)
{
	{
		const Refuse all = Refuse::from(1);
		EXPECT_FALSE(insert_handler("gamma", handler_a));
	}
	EXPECT_EQ(map->fn_list_num, 1u);
	EXPECT_TRUE(insert_handler("gamma", handler_b));
	EXPECT_EQ(find("gamma"), 1);
	EXPECT_EQ(map->fn_list[1], handler_b);
}

TEST_F(PimHandler, LabelWithAPlaceThatDoesNotExistIsFalse)
{
	ASSERT_TRUE(insert_handler("gamma"));
	for (const int place : {1, 63, 64, INT_MAX, -1, INT_MIN + 1}) {
		SCOPED_TRACE(place);
		const std::string label = "strange" + std::to_string(static_cast<unsigned>(place));
		ASSERT_TRUE(ctrie_insert(&map->fn_map, label.c_str(), place));
		EXPECT_FALSE(insert_handler(label, handler_b));
	}
	EXPECT_EQ(map->fn_list_num, 1u);
	EXPECT_EQ(map->fn_list[0], handler_a);
}

TEST_F(PimHandler, IsNotPartOfAnImage)
{
	ASSERT_TRUE(insert_handler("gamma"));
	ASSERT_TRUE(pim_insert_alg_handler(map.get(), algorithm_a));
	ImageBytes image = image_of(map.get());
	Map adopted;
	ASSERT_TRUE(adopt(adopted, image));
	EXPECT_EQ(adopted->fn_list_num, 0u);
	EXPECT_EQ(ctrie_find(&adopted->fn_map, "gamma"), INT_MIN);
	EXPECT_EQ(adopted->alg_fn, nullptr);
	EXPECT_TRUE(pim_insert_handler(adopted.get(), "gamma", handler_b));
	EXPECT_EQ(adopted->fn_list[0], handler_b);
}

TEST_F(PimHandler, ForAlgorithmsIsTheLastOneGiven)
{
	EXPECT_TRUE(pim_insert_alg_handler(map.get(), algorithm_a));
	EXPECT_EQ(map->alg_fn, algorithm_a);
	EXPECT_TRUE(pim_insert_alg_handler(map.get(), algorithm_b));
	EXPECT_EQ(map->alg_fn, algorithm_b);
	EXPECT_TRUE(pim_insert_alg_handler(map.get(), nullptr));
	EXPECT_EQ(map->alg_fn, nullptr);
}

TEST_F(PimHandler, ForAlgorithmsWithoutAMapIsFalse)
{
	EXPECT_FALSE(pim_insert_alg_handler(nullptr, algorithm_a));
}

} // namespace
