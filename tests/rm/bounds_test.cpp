// SPDX-License-Identifier: MIT
//
// What a request, a lack of room or a damaged image must not do to a context.

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "core/json.h"
#include "extmem/tree.h"
#include "rm/rm.h"
#include "tests/support/platform.h"

namespace {

struct Document {
	explicit Document(const std::string &text)
	    : json(static_cast<cJSON *>(vexil_json_parse(text.c_str())))
	{
	}
	~Document() { vexil_json_delete(json); }
	Document(const Document &) = delete;
	Document &operator=(const Document &) = delete;
	cJSON *json;
};

class RmBounds : public testing::Test {
protected:
	RmBounds()
	{
		EXPECT_TRUE(pim_init(&map, nullptr, 0, nullptr, 0));
		EXPECT_TRUE(rm_init(&rules, nullptr, 0));
	}
	~RmBounds() override
	{
		rm_handler_destroy(&handler);
		rm_destroy(&rules);
		pim_destroy(&map);
	}
	bool sources(const std::string &members)
	{
		return rm_insert_source_json(rules,
					     Document(R"({"PqRuleLists":{)" + members + "}}").json);
	}
	bool groups(const std::string &members)
	{
		return rm_insert(rules, Document(R"({"PqRuleGroups":{)" + members + "}}").json, map);
	}

	pim *map = nullptr;
	rm *rules = nullptr;
	rm_handler *handler = nullptr;
};

TEST_F(RmBounds, MergeIntoAContextWithAHandlerIsRefused)
{
	ASSERT_TRUE(sources(R"("A":{"content":0},"B":{"content":0})"));
	ASSERT_TRUE(rm_finish(rules));
	rm *target = nullptr;
	rm *other = nullptr;
	ASSERT_TRUE(rm_init(&target, nullptr, 0) && rm_init(&other, nullptr, 0));
	ASSERT_TRUE(rm_create_handler(target, &handler));
	EXPECT_FALSE(rm_merge(target, rules, other, map));
	EXPECT_EQ(target->builder.err_code, EXTMEM_INTERNAL_ERROR);
	EXPECT_EQ(target->used_bits, 0u);
	EXPECT_TRUE(rm_handler_clear(handler));
	rm_destroy(&target);
	rm_destroy(&other);
}

TEST_F(RmBounds, DeclarationWithoutRoomLeavesTheKeyAsItWas)
{
	ASSERT_TRUE(sources(R"("A":{"content":0})"));
	ASSERT_TRUE(groups(R"("R":{"rules":[{"comparator":{},"settings":[],"children":[]}]})"));
	ASSERT_TRUE(rm_finish(rules));
	// No node can be had any more.
	rules->builder.node_buffer.buf_used = 0xFFFF0;
	const auto reallocate = rules->builder.reallocate;
	rules->builder.reallocate = [](void *, size_t, size_t) -> void * { return nullptr; };
	rules->builder.node_buffer.buf_max = 0xFFFF0;
	EXPECT_FALSE(sources(R"("B":{"content":0})"));
	EXPECT_FALSE(sources(R"("C":{"content":["x","y"]})"));
	rules->builder.reallocate = reallocate;
	rules->builder.node_buffer.buf_max = 1024;
	rules->builder.node_buffer.buf_used = 0;
	EXPECT_EQ(rules->used_bits, 1u);
	EXPECT_EQ(rules->res_num, 1u);
}

TEST_F(RmBounds, LabelThatIsLostForMemoryIsNotCalledASuccess)
{
	for (size_t nth = 1;; ++nth) {
		rm *context = nullptr;
		ASSERT_TRUE(rm_init(&context, nullptr, 0));
		const Document list(R"({"PqRuleLists":{"Mode":{"content":["a","b"]},"V":{"content":0}}})");
		bool told;
		bool refused;
		{
			const auto refusal = vexil_test::Refuse::from(nth);
			told = !rm_insert_source_json(context, list.json);
			refused = refusal.happened();
		}
		const bool complete = ctrie_find(&context->source_map, "Mode:a") >= 0 &&
				      ctrie_find(&context->source_map, "Mode:b") >= 0 &&
				      ctrie_find(&context->source_map, "V") >= 0;
		EXPECT_TRUE(told || complete) << "refused from " << nth;
		rm_destroy(&context);
		if (!refused)
			break;
	}
	vexil_test::take_log();
}

TEST_F(RmBounds, DiamondsOfResultsEndInTime)
{
	constexpr int kDepth = 26;
	ASSERT_TRUE(pim_insert(map, Document(R"({"PqFuncGroups":{"I":{"settings":{"S":{"group":{"m":{}}}}}}})")
					 .json));
	std::string all;
	for (int i = 0; i < kDepth; ++i) {
		const std::string next = "\"R" + std::to_string(i + 1) + "\"";
		all += (i ? ",\"R" : "\"R") + std::to_string(i) +
		       R"(":{"rules":[{"comparator":{},"settings":["S#m"],"children":[)" +
		       (i + 1 < kDepth ? next + "," + next : "") + "]}]}";
	}
	ASSERT_TRUE(groups(all));
	ASSERT_TRUE(rm_finish(rules));
	const auto begin = std::chrono::steady_clock::now();
	EXPECT_FALSE(rm_trigger(rules, "R0"));
	EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
	EXPECT_NE(vexil_test::take_log().find("invalid NODEID at ["), std::string::npos);
}

TEST_F(RmBounds, data_holder_as_alternative)
{
	ASSERT_TRUE(sources(R"("A":{"content":0})"));
	ASSERT_TRUE(groups(R"("R":{"rules":[{"comparator":{},"settings":[],"children":[]}]})"));
	ASSERT_TRUE(rm_finish(rules));
	EXPECT_TRUE(rm_trigger(rules, nullptr));
	const auto rule = static_cast<u16>(ctrie_find(&rules->rulename_map, "R"));
	const node_d body = vexil::child_of(
		vexil::child_of(extmem_create_node_d(&rules->builder, rule)));
	extmem_set_tag(vexil::child_of(body), EXTMEM_TAG_DATA);
	EXPECT_FALSE(rm_trigger(rules, nullptr));
	EXPECT_EQ(vexil_test::take_log(),
		  "[VEXIL][RM][rm_trigger] Error while searching rule node " + std::to_string(rule) +
			  "\n");
}

TEST(VersionText, StringItemWithoutTextIsNone)
{
	cJSON *object = cJSON_CreateObject();
	cJSON_AddItemToObject(object, "JsonVersionFormat", cJSON_CreateStringReference(nullptr));
	cJSON_AddItemToObject(object, "Note", cJSON_CreateStringReference(nullptr));
	cJSON_AddItemToObject(object, "MajorVersion", cJSON_CreateNumber(2));
	vexil_version version{};
	char text[32] = "kept";
	__pim_get_version(object, &version, text);
	EXPECT_EQ(version.u16MajorNumber, 2);
	EXPECT_STREQ(text, "kept");
	cJSON_Delete(object);
}

} // namespace
