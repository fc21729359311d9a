// SPDX-License-Identifier: MIT
//
// The limits of rules, one group each: one below and at the limit everything works, as built and as
// adopted; one above is refused as documented, and leaves what was there.
#include "tests/limits/limits.h"

namespace {

using namespace vexil_test;

using LimitRuleNodes = LimitTest;
using LimitMergedRules = LimitTest;
using LimitMovedIds = LimitTest;
using LimitPendingRules = LimitTest;
using LimitPendingRanges = LimitTest;
using LimitPendingNames = LimitTest;
using LimitRuleList = LimitTest;
using LimitMembers = LimitTest;
using LimitConditions = LimitTest;
using LimitAlternatives = LimitTest;
using LimitSourceValues = LimitTest;
using LimitKeyBits = LimitTest;
using LimitSlots = LimitTest;
using LimitTokens = LimitTest;
using LimitRangeTexts = LimitTest;
using LimitRangeNumbers = LimitTest;
using LimitResults = LimitTest;
using LimitRuleChains = LimitTest;
using LimitVisits = LimitTest;

const std::string kUnparsable = "[VEXIL][RM][__rm_get_rulemap] Error parsing comparator\n";
const std::string kDuplicate = "[VEXIL][RM][rm_insert_source] duplicated timing ";

std::string number(size_t value)
{
	return std::to_string(value);
}

/** "S#<first>" to "S#<end - 1>". */
Lines labels(size_t end, size_t first = 0)
{
	Lines all;
	for (size_t i = first; i < end; ++i)
		all.push_back("S#" + number(i));
	return all;
}

// ---- nodes ----

/**
 * Rules that make a context of @total nodes once it is finished, root and counts among them. A rule
 * of the name @stem tells A:x by its last alternative.
 */
std::string filling(size_t total, const std::string &stem)
{
	constexpr size_t kSources = 3 * 5, kCounts = 4, kRule = 6 + 2 + 2, kAlternative = 3;
	std::string more;
	size_t left = total - 1 - kSources - kCounts - kRule;
	for (size_t i = 0; left % kAlternative != 0; ++i) {
		more += ", " + rule(stem + number(i), {rule_case("'A': 'z'", "'S#1'")});
		left -= kRule + kAlternative;
	}
	const size_t others = left / kAlternative - 1;
	return rule(stem, {rule_case("'A': [" + listed(others, "'y'") + ", 'x']", "'S#0'")}) + more;
}

TEST_F(LimitRuleNodes, UpTo65535WorkAndOneMoreIsRefused)
{
	for (const size_t total : {kMostNodeIds - 1, kMostNodeIds, kMostNodeIds + 1}) {
		SCOPED_TRACE(total);
		fresh();
		add_settings(2);
		ASSERT_TRUE(declare(enumerated("A", {"x", "y", "z"})));
		ASSERT_TRUE(add(filling(total, "R")));
		EXPECT_EQ(rm_finish(rules.get()), total <= kMostNodeIds);
		EXPECT_EQ(rule_node_count(rules.get()), total);
		if (total > kMostNodeIds) { // no room for the number of slots
			EXPECT_EQ(rules->builder.err_code, EXTMEM_OUT_OF_RANGE);
			EXPECT_EQ(found(rules.get(), map.get(), "A:x", "R"), labels(1));
			continue;
		}
		ASSERT_TRUE(ship());
		EXPECT_EQ(rule_node_count(run_rules.get()), total);
		EXPECT_EQ(selected("A:x", "R"), labels(1));
		EXPECT_EQ(selected("A:y", "R"), labels(1));
		EXPECT_EQ(selected("A:z", "R"), Lines{});
	}
}

TEST_F(LimitRuleNodes, FullContextTakesNothingAndWorks)
{
	add_settings(2);
	ASSERT_TRUE(declare(enumerated("A", {"x", "y", "z"})));
	ASSERT_TRUE(add(filling(kMostNodeIds, "R")));
	ASSERT_TRUE(rm_finish(rules.get()));
	EXPECT_TRUE(add(rule("More", {rule_case("", "'S#1'")})));
	EXPECT_EQ(ctrie_find(&rules->rulename_map, "More"), INT_MIN);
	EXPECT_FALSE(declare(enumerated("B", {"more"})));
	EXPECT_EQ(rules->used_bits, 2u);
	ASSERT_TRUE(ship());
	EXPECT_EQ(selected("A:x", "R"), labels(1));
	EXPECT_EQ(selected("A:z", "R"), Lines{});
}

// ---- merging ----

TEST_F(LimitMergedRules, UpTo65535NodesWorkAndOneMoreIsRefused)
{
	constexpr size_t kBaseNodes = 40000;
	Map base_map, sub_map;
	Rules base, sub;
	const auto build = [](Map &names, Rules &context, size_t total, const std::string &stem) {
		if (!names.init() || !context.init() || !pim_insert_regmap(names.get(), "R0", 0))
			return false;
		const std::string ip = "'" + stem + "': {'settings': {'S': {'group': {" +
				       listed(2, "'#': {'hwreg': {'R0': #}}") + "}}}}";
		return vexil_test::insert(names.get(), groups(ip)) &&
		       vexil_test::declare(context.get(), enumerated("A", {"x", "y", "z"})) &&
		       add_rules(context.get(), names.get(), filling(total, stem)) &&
		       rm_finish(context.get());
	};
	ASSERT_TRUE(build(base_map, base, kBaseNodes, "Base"));
	for (const size_t sum : {kMostNodeIds - 1, kMostNodeIds, kMostNodeIds + 1}) {
		SCOPED_TRACE(sum);
		fresh();
		ASSERT_TRUE(build(sub_map, sub, sum - kBaseNodes, "Sub"));
		ASSERT_TRUE(pim_merge(map.get(), base_map.get(), sub_map.get()));
		const bool fits = sum <= kMostNodeIds;
		EXPECT_EQ(rm_merge(rules.get(), base.get(), sub.get(), map.get()), fits);
		EXPECT_EQ(found(base.get(), base_map.get(), "A:x", nullptr), labels(1));
		EXPECT_EQ(found(sub.get(), sub_map.get(), "A:x", nullptr), labels(1));
		if (!fits) {
			EXPECT_EQ(rules->builder.err_code, EXTMEM_OUT_OF_RANGE);
			continue;
		}
		EXPECT_EQ(rule_node_count(rules.get()), sum);
		ASSERT_TRUE(ship());
		EXPECT_EQ(selected("A:x", "Base"), labels(1));
		EXPECT_EQ(selected("A:x", "Sub"), labels(1));
		EXPECT_EQ(selected("A:x"), (Lines{"S#0", "S#0"}));
	}
}

TEST_F(LimitMovedIds, EndAt65534)
{
	constexpr int kMoved = 1000;
	Map names;
	Rules base, sub;
	ASSERT_TRUE(base.init());
	ASSERT_TRUE(vexil_test::declare(base.get(), enumerated("A", {"x"})));
	ASSERT_TRUE(rm_finish(base.get()));
	for (const int id : {65533 - kMoved, 65534 - kMoved, 65535 - kMoved}) {
		fresh();
		ASSERT_TRUE(names.init());
		add_name(names->ipname_map, "last", id);
		add_name(names->preset_map, "preset", id);
		ASSERT_TRUE(sub.init());
		ASSERT_TRUE(vexil_test::declare(sub.get(), enumerated("A", {"x"})));
		ASSERT_TRUE(add_rules(sub.get(), names.get(),
				      rule("R", {rule_case("'A': 'x'", "'last', 'preset'")})));
		ASSERT_TRUE(rm_finish(sub.get()));
		map->max_node_index = kMoved - 1; // as merging left it
		const bool fits = id + kMoved <= 65534;
		const std::string before = store_bytes(sub.get());
		EXPECT_EQ(rm_merge(rules.get(), base.get(), sub.get(), map.get()), fits) << id;
		EXPECT_EQ(store_bytes(sub.get()), before);
		if (!fits) {
			EXPECT_EQ(rules->builder.err_code, EXTMEM_OUT_OF_RANGE);
			EXPECT_EQ(rule_node_count(rules.get()), 1u);
			continue;
		}
		ASSERT_TRUE(ship());
		for (rm *each : {rules.get(), run_rules.get()}) {
			const states::Handler handler(each);
			ASSERT_TRUE(rm_handler_set(handler, "A:x", 0));
			ASSERT_TRUE(rm_handler_trigger(handler, "R"));
			EXPECT_EQ(states::settings_of(handler), Ids{static_cast<u16>(id + kMoved)});
			EXPECT_EQ(states::presets_of(handler), Ids{static_cast<u16>(id + kMoved)});
		}
	}
}

// ---- names that wait ----

TEST_F(LimitPendingRules, Are64)
{
	constexpr size_t kMost = 64;
	for (const size_t count : {kMost - 1, kMost, kMost + 1}) {
		SCOPED_TRACE(count);
		fresh();
		add_settings(count);
		ASSERT_TRUE(declare(enumerated("A", {"x", "y"})));
		ASSERT_TRUE(
			add(rule("Parent", {rule_case("'A': 'x'", "", listed(count, "'Later#'")),
					    rule_case("'A': 'y'", "'S#0'")})));
		EXPECT_EQ(rules->unres_rule.count, std::min(count, kMost));
		EXPECT_FALSE(rm_finish(rules.get()));
		ASSERT_TRUE(add(listed(count, [](size_t i) {
			return rule("Later" + number(i), {rule_case("", "'S#" + number(i) + "'")});
		})));
		EXPECT_TRUE(rm_finish(rules.get())); // what was dropped is not missed
		EXPECT_EQ(rules->unres_rule.count, 0u);
		ASSERT_TRUE(ship());
		EXPECT_EQ(selected("A:y", "Parent"), labels(1));
		if (count <= kMost) {
			EXPECT_EQ(selected("A:x", "Parent"), labels(count));
			continue;
		}
		// The one that was dropped is nobody, and noticed when it is reached.
		for (rm *each : {rules.get(), run_rules.get()}) {
			const states::Handler handler(each);
			ASSERT_TRUE(rm_handler_set(handler, "A:x", 0));
			EXPECT_FALSE(rm_handler_trigger(handler, "Parent"));
			EXPECT_EQ(states::settings_of(handler).size(), kMost);
			const Lines log = take_log_lines();
			ASSERT_EQ(log.size(), 2u);
			EXPECT_TRUE(log[0].starts_with(
				"[VEXIL][RM][__rm_find_setting] Internal error, invalid NODEID at ["))
				<< log[0];
			EXPECT_EQ(log[1] + "\n",
				  states::rule_failed("rm_handler_trigger",
						      states::rule_id(each, "Parent")));
		}
	}
}

TEST_F(LimitPendingRanges, Are64)
{
	constexpr size_t kMost = 64, kEach = 16;
	for (const size_t count : {kMost - 1, kMost, kMost + 1}) {
		SCOPED_TRACE(count);
		fresh();
		add_settings(count);
		// Values of up to 16 ranges, each over a source of its own that comes later.
		std::string define, content, cases;
		for (size_t first = 0, i = 0; first < count; first += kEach, ++i) {
			const size_t ranges = std::min(kEach, count - first);
			define += (i ? ", 'v" : "'v") + number(i) + "': {" +
				  listed(ranges,
					 [&](size_t n) {
						 return "'L" + number(first + n) + "': '[1,1]'";
					 }) +
				  "}";
			content += (i ? ", 'v" : "'v") + number(i) + "'";
		}
		ASSERT_TRUE(
			declare("'D': {'define': {" + define + "}, 'content': [" + content + "]}"));
		EXPECT_EQ(rules->unres_source.count, std::min(count, kMost));
		EXPECT_FALSE(rm_finish(rules.get()));
		ASSERT_TRUE(declare(listed(count, "'L#': {'content': 1}")));
		EXPECT_EQ(rules->unres_source.count, 0u);
		const size_t values = (count + kEach - 1) / kEach;
		ASSERT_TRUE(add(listed(values, [](size_t i) {
			return rule("R" + number(i), {rule_case("'D': 'v" + number(i) + "'",
								"'S#" + number(i) + "'")});
		})));
		EXPECT_TRUE(rm_finish(rules.get()));
		ASSERT_TRUE(ship());
		const auto all = [&](size_t but) {
			std::string filter;
			for (size_t i = 0; i < count; ++i)
				filter += "L" + number(i) + ":" + (i == but ? "2;" : "1;");
			return filter;
		};
		for (size_t i = 0; i < std::min(values, kMost / kEach); ++i) {
			const std::string name = "R" + number(i);
			const size_t last = std::min((i + 1) * kEach, count) - 1;
			EXPECT_EQ(selected(all(count), name.c_str()), labels(i + 1, i));
			EXPECT_EQ(selected(all(last), name.c_str()), Lines{}) << last;
		}
		if (count <= kMost)
			continue;
		// The range that was dropped cannot be read.
		for (rm *each : {rules.get(), run_rules.get()}) {
			const states::Handler handler(each);
			ASSERT_TRUE(rm_handler_set(handler, all(count).c_str(), 0));
			EXPECT_FALSE(rm_handler_trigger(handler, "R4"));
			EXPECT_EQ(take_log(), states::rule_failed("rm_handler_trigger",
								  states::rule_id(each, "R4")));
		}
	}
}

TEST_F(LimitPendingNames, Have127Characters)
{
	constexpr size_t kMost = 127;
	for (const size_t length : {kMost - 1, kMost, kMost + 1}) {
		SCOPED_TRACE(length);
		fresh();
		add_settings(2);
		const std::string child(length, 'c'), source(length, 'l');
		const bool fits = length <= kMost;
		ASSERT_TRUE(declare("'D': {'define': {'v': {'" + source +
				    "': '[1,1]'}}, 'content': ['v']}"));
		ASSERT_TRUE(declare(value_source(source)));
		EXPECT_EQ(rules->unres_source.count, fits ? 0u : 1u); // the cut name is nobody's
		ASSERT_TRUE(add(rule("Parent", {rule_case("", "", "'" + child + "'")}) + ", " +
				rule("Range", {rule_case("'D': 'v'", "'S#1'")}) + ", " +
				rule(child, {rule_case("", "'S#0'")})));
		EXPECT_EQ(rm_finish(rules.get()), fits);
		ASSERT_TRUE(ship());
		EXPECT_EQ(selected("", child.c_str()), labels(1)); // names themselves may be longer
		if (fits) {
			EXPECT_EQ(selected("", "Parent"), labels(1));
			EXPECT_EQ(selected(source, "Range", 1), labels(2, 1));
			EXPECT_EQ(selected(source, "Range", 2), Lines{});
			continue;
		}
		const states::Handler handler(run_rules.get());
		EXPECT_FALSE(rm_handler_trigger(handler, "Parent"));
		EXPECT_FALSE(rm_handler_trigger(handler, "Range"));
		EXPECT_EQ(take_log_lines().size(), 3u);
	}
}

// ---- lists of rules ----

TEST_F(LimitRuleList, Has128Names)
{
	constexpr size_t kMost = 128;
	add_settings(kMost + 2);
	ASSERT_TRUE(add(listed(kMost + 2, [](size_t i) {
		return rule("R" + number(i), {rule_case("", "'S#" + number(i) + "'")});
	})));
	ASSERT_TRUE(rm_finish(rules.get()));
	ASSERT_TRUE(ship());
	for (const size_t count : {kMost - 1, kMost, kMost + 1}) {
		SCOPED_TRACE(count);
		std::string list, backwards;
		for (size_t i = 0; i < count; ++i) {
			list += "R" + number(i) + ";";
			backwards += "R" + number(count - 1 - i) + ";";
		}
		EXPECT_EQ(selected("", list.c_str()), labels(std::min(count, kMost)));
		Lines last = labels(count, count > kMost ? 1 : 0);
		std::reverse(last.begin(), last.end());
		EXPECT_EQ(selected("", backwards.c_str()), last);
		EXPECT_EQ(selected("", (list + "-").c_str()),
			  labels(kMost + 2, std::min(count, kMost)));
		// Unknown names take no place.
		EXPECT_EQ(selected("", ("None;" + list).c_str()), labels(std::min(count, kMost)));
		EXPECT_EQ(take_log(), states::unknown_rule("rm_handler_trigger", "None") +
					      states::unknown_rule("rm_handler_trigger", "None"));
	}
}

// ---- comparators ----

TEST_F(LimitMembers, Are128)
{
	constexpr size_t kMost = 128;
	for (const size_t count : {kMost - 1, kMost, kMost + 1}) {
		SCOPED_TRACE(count);
		fresh();
		add_settings(2);
		ASSERT_TRUE(declare(listed(count, "'E#': {'content': ['on', 'off']}")));
		ASSERT_TRUE(add(rule("R", {rule_case(listed(count, "'E#': 'on'"), "'S#0'"),
					   rule_case("'E0': 'off'", "'S#1'")})));
		const bool fits = count <= kMost;
		EXPECT_EQ(take_log(), fits ? "" : kUnparsable);
		ASSERT_TRUE(rm_finish(rules.get()));
		ASSERT_TRUE(ship());
		const auto all = [&](size_t but) {
			std::string filter;
			for (size_t i = 0; i < count; ++i)
				filter += "E" + number(i) + (i == but ? ":off;" : ":on;");
			return filter;
		};
		EXPECT_EQ(selected(all(count)), fits ? labels(1) : Lines{});
		EXPECT_EQ(selected(all(0)), labels(2, 1)); // the case behind it
		for (size_t but = 1; but < count; ++but)
			EXPECT_EQ(selected(all(but)), Lines{}) << but;
	}
}

TEST_F(LimitConditions, Are32OfEachKind)
{
	constexpr size_t kMost = 32;
	struct Kinds {
		size_t values, redefined;
	};
	for (const Kinds kinds :
	     {Kinds{kMost - 1, 0}, Kinds{kMost, 0}, Kinds{kMost + 1, 0}, Kinds{0, kMost - 1},
	      Kinds{0, kMost}, Kinds{0, kMost + 1}, Kinds{kMost, kMost}, Kinds{kMost + 1, kMost},
	      Kinds{kMost, kMost + 1}}) {
		SCOPED_TRACE(number(kinds.values) + " and " + number(kinds.redefined));
		fresh();
		add_settings(2);
		ASSERT_TRUE(declare(listed(kinds.values, "'V#': {'content': 1}")));
		ASSERT_TRUE(declare(listed(kinds.redefined, "'W#': {'content': 1}")));
		ASSERT_TRUE(declare("'D': {'define': {'d': {" +
				    listed(kinds.redefined, "'W#': '[3,5)'") +
				    "}}, 'content': ['d']}"));
		std::string comparator = listed(kinds.values, "'V#': '(6,8]'");
		if (kinds.redefined)
			comparator += (kinds.values ? ", " : "") + std::string("'D': 'd'");
		ASSERT_TRUE(add(rule("R", {rule_case(comparator, "'S#0'")}) + ", " +
				rule("Other", {rule_case("", "'S#1'")})));
		const bool fits = kinds.values <= kMost && kinds.redefined <= kMost;
		EXPECT_EQ(take_log(), fits ? "" : kUnparsable);
		ASSERT_TRUE(rm_finish(rules.get()));
		ASSERT_TRUE(ship());
		const auto all = [&](size_t but, bool low) {
			std::string filter;
			for (size_t i = 0; i < kinds.values + kinds.redefined; ++i) {
				const bool value = i < kinds.values;
				const size_t least = value ? 7 : 3, most = value ? 8 : 4;
				const size_t in = i % 2 ? least : most;
				filter +=
					(value ? "V" + number(i) : "W" + number(i - kinds.values)) +
					":" +
					number(i != but ? in
					       : low    ? least - 1
							: most + 1) +
					";";
			}
			return filter;
		};
		const size_t count = kinds.values + kinds.redefined;
		EXPECT_EQ(selected(all(count, false)), fits ? labels(2) : labels(2, 1));
		for (size_t but = 0; but < count; ++but) {
			EXPECT_EQ(selected(all(but, false)), labels(2, 1)) << but;
			EXPECT_EQ(selected(all(but, true)), labels(2, 1)) << but;
		}
	}
}

TEST_F(LimitAlternatives, EndWithTheNodes)
{
	// Root, three labels, rule, case, three nodes for each alternative, the outcome, the
	// counts.
	constexpr size_t kMost = (kMostNodeIds - 1 - 15 - 6 - 2 - 2 - 4) / 3;
	for (const size_t count : {kMost - 1, kMost, kMost + 1}) {
		SCOPED_TRACE(count);
		fresh();
		add_settings(1);
		ASSERT_TRUE(declare(enumerated("A", {"x", "y", "z"})));
		ASSERT_TRUE(add(rule("R", {rule_case("'A': [" + listed(count - 1, "'y'") + ", 'x']",
						     "'S#0'")})));
		EXPECT_EQ(rm_finish(rules.get()), count <= kMost);
		EXPECT_EQ(found(rules.get(), map.get(), "A:x", "R"), labels(1)); // the last one
		EXPECT_EQ(found(rules.get(), map.get(), "A:z", "R"), Lines{});
	}
	// Without room for all of them there is no such case.
	fresh();
	add_settings(2);
	ASSERT_TRUE(declare(enumerated("A", {"x", "y", "z"})));
	ASSERT_TRUE(add(rule("Before", {rule_case("'A': 'x'", "'S#1'")})));
	ASSERT_TRUE(add(rule("R", {rule_case("'A': [" + listed(30000, "'x'") + "]", "'S#0'")})));
	EXPECT_FALSE(rm_finish(rules.get()));
	EXPECT_EQ(found(rules.get(), map.get(), "A:x", nullptr), labels(2, 1));
}

TEST_F(LimitAlternatives, AreASigned16BitNumber)
{
	constexpr size_t kHalf = 1 << 15;
	for (const size_t count : {kHalf, kHalf + 1, 2 * kHalf - 1, 2 * kHalf, 2 * kHalf + 1}) {
		SCOPED_TRACE(count);
		fresh();
		add_settings(2);
		ASSERT_TRUE(declare(enumerated("A", {"x", "y"})));
		ASSERT_TRUE(
			add(rule("R", {rule_case("'A': [" + listed(count, "'x'") + "]", "'S#0'"),
				       rule_case("", "'S#1'")})));
		ASSERT_TRUE(rm_finish(rules.get()));
		ASSERT_TRUE(ship());
		// None of them up to 65536, then the first of them again; the case behind counts.
		EXPECT_EQ(selected("A:x"), count > 2 * kHalf ? labels(1) : labels(2, 1));
		EXPECT_EQ(selected("A:y"), labels(2, 1));
	}
}

// ---- sources ----

TEST_F(LimitSourceValues, WidenTheFieldBeforeTheyFillIt)
{
	for (size_t width = 1; width <= 9; ++width) {
		const size_t most = (size_t{1} << width) - 1; // code 0 is "not set"
		for (const size_t count : {most - 1, most, most + 1}) {
			if (count == 0)
				continue;
			SCOPED_TRACE(count);
			fresh();
			add_settings(2);
			ASSERT_TRUE(declare(enumerated("Low", {"on"}) + ", " +
					    enumerated("A", numbered("v", count)) + ", " +
					    enumerated("High", {"on"})));
			EXPECT_EQ(rules->used_bits, (count > most ? width + 1 : width) + 2);
			const std::string last = "v" + number(count - 1);
			ASSERT_TRUE(add(rule("R", {rule_case("'A': '" + last +
								     "', 'Low': 'on', "
								     "'High': 'on'",
							     "'S#0'"),
						   rule_case("'A': 'v0'", "'S#1'")})));
			ASSERT_TRUE(rm_finish(rules.get()));
			ASSERT_TRUE(ship());
			EXPECT_EQ(selected("Low:on;High:on;A:" + last), labels(1));
			EXPECT_EQ(selected("Low:on;A:" + last),
				  count == 1 ? labels(2, 1) : Lines{});
			EXPECT_EQ(selected("High:on;A:" + last),
				  count == 1 ? labels(2, 1) : Lines{});
			EXPECT_EQ(selected("Low:on;High:on"), Lines{});
			EXPECT_EQ(selected("A:v0"), labels(2, 1));
		}
	}
}

TEST_F(LimitSourceValues, Are65535)
{
	constexpr size_t kMost = 65535;
	for (const size_t count : {kMost - 1, kMost, kMost + 1}) {
		SCOPED_TRACE(count);
		fresh();
		add_settings(2);
		const bool fits = count <= kMost;
		// One label would take five nodes: most items repeat the first, as numbers do.
		EXPECT_EQ(declare("'Before': {'content': ['on']}, 'A': {'content': ['a', " +
				  listed(count - 2, "1") +
				  ", 'z']}, 'Behind': {'content': ['on']}"),
			  fits);
		const Lines log = take_log_lines();
		if (!fits) {
			EXPECT_EQ(log, Lines{"[rm_insert_source][310]vexil lib fail!!"});
			EXPECT_EQ(rules->used_bits, 1u);
			ASSERT_TRUE(add(rule("R", {rule_case("'Before': 'on'", "'S#0'")})));
			ASSERT_TRUE(rm_finish(rules.get()));
			ASSERT_TRUE(ship());
			EXPECT_EQ(selected("Before:on"), labels(1));
			continue;
		}
		EXPECT_EQ(log, Lines(count - 2, kDuplicate + "A:a"));
		EXPECT_EQ(rules->used_bits, 18u);
		ASSERT_TRUE(add(rule("R", {rule_case("'A': 'z', 'Behind': 'on'", "'S#0'"),
					   rule_case("'A': 'a'", "'S#1'")})));
		ASSERT_TRUE(rm_finish(rules.get()));
		ASSERT_TRUE(ship());
		EXPECT_EQ(selected("A:z;Behind:on"), labels(1));
		EXPECT_EQ(selected("A:z"), Lines{});
		EXPECT_EQ(selected("A:a;Before:on;Behind:on"), labels(2, 1));
		EXPECT_EQ(selected("Before:on;Behind:on"), Lines{});
	}
}

/** Sources of exactly @bits, "First" and "Last" of two bits each among them; "F" takes the others.
 */
std::string sources_of(size_t bits)
{
	std::string text = enumerated("First", {"a", "b"});
	size_t left = bits - 4;
	for (size_t i = 0; left > 0; ++i) {
		// Fields of one to four bits, so that they straddle words.
		const size_t width = std::min(left, i % 4 + 1);
		text += ", " + enumerated("F" + number(i), numbered("v", (size_t{1} << width) - 1));
		left -= width;
	}
	return text + ", " + enumerated("Last", {"a", "b"});
}

TEST_F(LimitKeyBits, AroundWordsWork)
{
	for (const size_t bits : {4u, 5u, 63u, 64u, 65u, 66u, 127u, 128u, 129u, 191u, 192u, 193u,
				  1000u, 1023u, 1024u, 1025u, 4097u}) {
		SCOPED_TRACE(bits);
		fresh();
		add_settings(3);
		ASSERT_TRUE(declare(sources_of(bits)));
		ASSERT_EQ(rules->used_bits, bits);
		size_t fields = 0; // each must have the highest of its values
		std::string comparator = "'First': 'b', 'Last': 'b'", filter = "First:b;Last:b";
		for (size_t left = bits - 4; left > 0; ++fields) {
			const size_t width = std::min(left, fields % 4 + 1);
			const std::string value = "v" + number((size_t{1} << width) - 2);
			if (fields < 126) // members have an end, too
				comparator += ", 'F" + number(fields) + "': '" + value + "'";
			filter += ";F" + number(fields) + ":" + value;
			left -= width;
		}
		ASSERT_TRUE(
			add(rule("R", {rule_case(comparator, "'S#0'"),
				       rule_case("'Last': ['a', 'b'], 'First': 'a'", "'S#1'"),
				       rule_case("'First': ['a', 'b'], 'Last': 'a'", "'S#2'")})));
		ASSERT_TRUE(rm_finish(rules.get()));
		ASSERT_TRUE(ship());
		EXPECT_EQ(selected(filter), labels(1));
		EXPECT_EQ(selected(filter + ";First:a"),
			  labels(2, 1)); // the later statement counts
		EXPECT_EQ(selected(filter + ";Last:a"), labels(3, 2));
		EXPECT_EQ(selected("First:b;Last:b"), bits > 4 ? Lines{} : labels(1));
		for (size_t i = 0; i < std::min<size_t>(fields, 126); ++i) {
			const size_t width = std::min(i % 4 + 1, bits - 4);
			if (width == 1 || i + 1 == fields)
				continue;
			EXPECT_EQ(selected(filter + ";F" + number(i) + ":v0"), Lines{}) << i;
		}
	}
}

TEST_F(LimitKeyBits, Are65536)
{
	constexpr size_t kMost = 65536;
	for (const size_t bits : {kMost - 1, kMost, kMost + 1}) {
		SCOPED_TRACE(bits);
		fresh();
		add_settings(3);
		// A value source that is declared again still takes its bit; the last field takes
		// two.
		ASSERT_TRUE(declare(value_source("N") + ", " +
				    listed(bits - 4, "'N': {'content': 1}")));
		EXPECT_EQ(take_log_lines().size(), bits - 4);
		ASSERT_TRUE(declare(enumerated("Middle", {"a"})));
		const bool fits = bits <= kMost;
		EXPECT_EQ(declare(enumerated("Last", {"a", "b"})), fits);
		EXPECT_EQ(take_log(), fits ? "" : "[rm_insert_source][310]vexil lib fail!!\n");
		EXPECT_EQ(rules->used_bits, fits ? bits : bits - 2);
		const std::string last = fits ? "'Last': 'b', " : "";
		ASSERT_TRUE(
			add(rule("R", {rule_case(last + "'Middle': 'a', 'N': '[3,4]'", "'S#0'")}) +
			    ", " +
			    rule("None", {rule_case("'Last': 'a'", "'S#1'"),
					  rule_case("'N': '[9,9]'", "'S#2'")})));
		EXPECT_EQ(take_log(),
			  fits ? "" : "[VEXIL][RM][__rm_get_rule] Cannot find source: Last:a\n");
		ASSERT_TRUE(rm_finish(rules.get()));
		ASSERT_TRUE(ship());
		EXPECT_EQ(selected("N:3;Middle:a;Last:b"), labels(1));
		EXPECT_EQ(selected("N:4;Middle:a;Last:b"), labels(1));
		EXPECT_EQ(selected("N:5;Middle:a;Last:b"), Lines{});
		EXPECT_EQ(selected("N:3;Last:b"), Lines{});
		EXPECT_EQ(selected("N:3;Middle:a;Last:a"), fits ? labels(2, 1) : labels(1));
		EXPECT_EQ(selected("N:9"), labels(3, 2));
	}
}

TEST_F(LimitKeyBits, OfImagesAre65536)
{
	for (const u32 bits : {65535u, 65536u, 65537u, 0xFFFFFFFFu}) {
		RuleImage plan;
		plan.source("Last:a", {static_cast<u16>(std::min(bits, 65536u) - 1), 1, 1, 0});
		plan.used_bits(bits);
		plan.res_num(0);
		rules_image = plan.write();
		const bool fits = bits <= 65536;
		EXPECT_EQ(fault_of(rules_image).code, fits ? VEXIL_IMAGE_SOUND : VEXIL_IMAGE_COUNT);
		Rules adopted;
		EXPECT_EQ(adopt(adopted, rules_image), fits) << bits;
		EXPECT_EQ(rm_set(adopted.get(), "Last:a", 0), fits);
	}
}

TEST_F(LimitSlots, OfImagesAre65535)
{
	for (const u32 slots : {65534u, 65535u, 65536u, 0xFFFFFFFFu}) {
		const u64 last = std::min(slots, 65536u) - 1;
		RuleImage plan;
		plan.value_source("L", {0, 1, 1, 0}, last);
		plan.used_bits(1);
		plan.res_num(slots);
		rules_image = plan.write();
		const bool fits = slots <= 65535;
		EXPECT_EQ(fault_of(rules_image).code, fits ? VEXIL_IMAGE_SOUND : VEXIL_IMAGE_COUNT);
		Rules adopted;
		EXPECT_EQ(adopt(adopted, rules_image), fits) << slots;
		if (!fits)
			continue;
		EXPECT_TRUE(rm_set(adopted.get(), "L:7", 0));
		EXPECT_EQ(adopted->rmInd.resBuffer[last], 7u);
	}
}

TEST_F(LimitSlots, AreThoseThatWereHandedOut)
{
	for (const u64 slot : {2u, 3u, 4u}) {
		RuleImage plan;
		plan.value_source("L", {0, 1, 1, 0}, slot);
		plan.used_bits(1);
		plan.res_num(4);
		rules_image = plan.write();
		EXPECT_EQ(fault_of(rules_image).code,
			  slot < 4 ? VEXIL_IMAGE_SOUND : VEXIL_IMAGE_SLOT);
		Rules adopted;
		ASSERT_TRUE(adopt(adopted, rules_image));
		EXPECT_EQ(rm_set(adopted.get(), "L:7", 0), slot < 4) << slot;
		EXPECT_EQ(take_log(), slot < 4 ? "" : states::kNoNumbers);
	}
}

TEST_F(LimitSlots, FillTheNodes)
{
	constexpr size_t kMost = (kMostNodeIds - 1 - 4) / 6; // six nodes for each
	for (const size_t count : {kMost - 1, kMost, kMost + 1}) {
		SCOPED_TRACE(count);
		fresh();
		EXPECT_EQ(declare(listed(count, "'L#': {'content': 1}")) && rm_finish(rules.get()),
			  count <= kMost);
		if (count > kMost) {
			EXPECT_EQ(rules->builder.err_code, EXTMEM_OUT_OF_RANGE);
			continue;
		}
		EXPECT_EQ(rules->res_num, count);
		ASSERT_TRUE(ship());
		const std::string last = "L" + number(count - 1) + ":77";
		ASSERT_TRUE(rm_set(run_rules.get(), last.c_str(), 0));
		EXPECT_EQ(run_rules->rmInd.resBuffer[count - 1], 77u);
	}
}

// ---- texts ----

TEST_F(LimitTokens, OfFiltersHave127Characters)
{
	constexpr size_t kMost = 127;
	for (const size_t length : {kMost - 1, kMost, kMost + 1}) {
		SCOPED_TRACE(length);
		fresh();
		add_settings(2);
		const std::string value(length - 2, 'v'), source(length - 2, 'n');
		ASSERT_TRUE(declare("'A': {'content': ['" + value + "', 'x']}, " +
				    value_source(source)));
		ASSERT_TRUE(add(rule("R", {rule_case("'A': '" + value + "'", "'S#0'")}) + ", " +
				rule("N", {rule_case("'" + source + "': '[3,3]'", "'S#1'")})));
		ASSERT_TRUE(rm_finish(rules.get()));
		ASSERT_TRUE(ship());
		if (length <= kMost) {
			EXPECT_EQ(selected("A:" + value), labels(1));
			EXPECT_EQ(selected("A : " + value + "  "),
				  labels(1)); // blanks do not count
			EXPECT_EQ(selected(source + ":3"), labels(2, 1));
			EXPECT_EQ(selected("A:" + value + ";" + source + ":3;A:x"), labels(2, 1));
			continue;
		}
		for (rm *each : {rules.get(), run_rules.get()}) {
			const states::Handler handler(each);
			EXPECT_TRUE(rm_handler_set(handler, "A:x", 0));
			for (const std::string &token : {"A:" + value, source + ":3"})
				EXPECT_FALSE(rm_handler_set(handler, (token + ";A:x").c_str(), 0));
			EXPECT_EQ(states::key_of(each, handler->rmInd)[0], 2u); // as it was
			EXPECT_TRUE(rm_handler_trigger(handler, "R"));
			EXPECT_EQ(states::settings_of(handler), Ids{});
			// One shot is not cut off by a name's length, only by a token's.
			EXPECT_TRUE(rm_find(each, "A:x", "R"));
		}
	}
}

TEST_F(LimitTokens, OfRuleListsHaveNoEnd)
{
	for (const size_t length : {127u, 128u, 5000u}) {
		fresh();
		add_settings(1);
		const std::string name(length, 'r');
		ASSERT_TRUE(add(rule(name, {rule_case("", "'S#0'")})));
		ASSERT_TRUE(rm_finish(rules.get()));
		ASSERT_TRUE(ship());
		EXPECT_EQ(selected("", name.c_str()), labels(1));
		EXPECT_EQ(selected("", (name + ";" + name).c_str()), (Lines{"S#0", "S#0"}));
		EXPECT_EQ(selected("", ("-" + name).c_str()), Lines{});
		vexil_version version;
		EXPECT_TRUE(rm_get_rm_version(run_rules.get(), &version, name.c_str()));
	}
}

TEST_F(LimitRangeTexts, HaveBoundsOf127Characters)
{
	constexpr size_t kMost = 127;
	for (const size_t length : {kMost - 1, kMost, kMost + 1}) {
		SCOPED_TRACE(length);
		fresh();
		add_settings(1);
		const auto bound = [&](char digit) { // "0x" with zeros, or it would be octal
			return "0x" + std::string(length - 3, '0') + digit;
		};
		ASSERT_TRUE(declare(value_source("L")));
		ASSERT_TRUE(
			add(rule("R", {rule_case("'L': '[" + bound('3') + ", " + bound('5') + "]'",
						 "'S#0'")})));
		ASSERT_TRUE(rm_finish(rules.get()));
		ASSERT_TRUE(ship());
		// Longer ones are 0, both of them.
		const bool fits = length <= kMost;
		for (const size_t value : {0, 1, 2, 3, 4, 5, 6})
			EXPECT_EQ(selected("L:" + number(value)),
				  (fits ? value >= 3 && value <= 5 : value == 0) ? labels(1)
										 : Lines{})
				<< value;
	}
}

TEST_F(LimitRangeNumbers, Have64Bits)
{
	const std::string most = "18446744073709551615", over = "18446744073709551616";
	const struct {
		std::string range;
		std::vector<std::string> in, out;
	} rows[] = {
		{"[0," + most + "]", {"0", most}, {}},
		{"[" + most + "," + most + "]", {most}, {"0", "18446744073709551614"}},
		{"[1," + most + ")", {"1", "18446744073709551614"}, {"0", most}},
		{"[0," + over + "]", {"0"}, {"1", most}}, // what has more bits is 0
		{"[" + over + ",2]", {"0", "2"}, {"3", most}},
		{"(0,1)", {}, {"0", "1"}},
		{"[0,0)", {"0"}, {"1"}},
		{"[0x7FFFFFFFFFFFFFFF,0x8000000000000000]",
		 {"9223372036854775807", "9223372036854775808"},
		 {"9223372036854775806", "9223372036854775809"}},
	};
	for (const auto &row : rows) {
		SCOPED_TRACE(row.range);
		fresh();
		add_settings(1);
		ASSERT_TRUE(declare(value_source("L")));
		ASSERT_TRUE(add(rule("R", {rule_case("'L': '" + row.range + "'", "'S#0'")})));
		ASSERT_TRUE(rm_finish(rules.get()));
		ASSERT_TRUE(ship());
		for (const std::string &value : row.in)
			EXPECT_EQ(selected("L:" + value), labels(1)) << value;
		for (const std::string &value : row.out)
			EXPECT_EQ(selected("L:" + value), Lines{}) << value;
	}
	// Numbers of filters: what has more than 64 bits is 0.
	fresh();
	add_settings(2);
	ASSERT_TRUE(declare(value_source("L")));
	ASSERT_TRUE(add(rule("R", {rule_case("'L': '[0,0]'", "'S#0'"),
				   rule_case("'L': '[" + most + "," + most + "]'", "'S#1'")})));
	ASSERT_TRUE(rm_finish(rules.get()));
	ASSERT_TRUE(ship());
	EXPECT_EQ(selected("L:" + most), labels(2, 1));
	EXPECT_EQ(selected("L:" + over), labels(1));
	EXPECT_EQ(selected("L:0x10000000000000000"), labels(1));
	const states::Handler handler(run_rules.get());
	EXPECT_TRUE(rm_handler_set(handler, "L", ~u64{0}));
	EXPECT_TRUE(rm_handler_trigger(handler, "R"));
	EXPECT_EQ(states::settings_of(handler), Ids{pim_query_setting_id(run_map.get(), "S#1")});
}

// ---- evaluation ----

TEST_F(LimitResults, GrowBy16)
{
	for (const size_t count : {15u, 16u, 17u, 31u, 32u, 33u, 5000u}) {
		SCOPED_TRACE(count);
		fresh();
		add_settings(count);
		const auto item = [](size_t i) { return "'S#" + number(i) + "'"; };
		ASSERT_TRUE(add(rule("R", {rule_case("", listed(count, item))})));
		ASSERT_TRUE(rm_finish(rules.get()));
		ASSERT_TRUE(ship());
		EXPECT_EQ(selected(""), labels(count));
		const states::Handler handler(run_rules.get());
		EXPECT_TRUE(rm_handler_trigger(handler, "R"));
		EXPECT_EQ(handler->rmInd.result.max_result, (count + 15) / 16 * 16);
	}
}

TEST_F(LimitRuleChains, HaveNoEndButTheNodes)
{
	// The first steps of a path are kept in place, further ones in memory.
	for (const size_t count : {31u, 32u, 33u, 4000u}) {
		SCOPED_TRACE(count);
		fresh();
		add_settings(1);
		std::string chain = rule("R0", {rule_case("", "'S#0'")});
		for (size_t i = 1; i < count; ++i)
			chain += ", " + rule("R" + number(i),
					     {rule_case("", "", "'R" + number(i - 1) + "'")});
		ASSERT_TRUE(add(chain));
		ASSERT_TRUE(rm_finish(rules.get()));
		ASSERT_TRUE(ship());
		EXPECT_EQ(selected("", ("R" + number(count - 1)).c_str()), labels(1));
	}
}

TEST_F(LimitVisits, Are16Million)
{
	// Each rule leads to the one before it twice: 2^n evaluations, of four nodes or a little
	// more.
	constexpr size_t kMost = 21;
	add_settings(1);
	std::string chain = rule("R0", {rule_case("'A': 'x'")});
	for (size_t i = 1; i <= kMost + 1; ++i) {
		const std::string child = "'R" + number(i - 1) + "'";
		chain += ", " + rule("R" + number(i), {rule_case("", "", child + ", " + child)});
	}
	ASSERT_TRUE(declare(enumerated("A", {"x"})));
	ASSERT_TRUE(add(chain + ", " + rule("Other", {rule_case("", "'S#0'")})));
	ASSERT_TRUE(rm_finish(rules.get()));
	ASSERT_TRUE(ship());
	const states::Handler handler(run_rules.get());
	EXPECT_TRUE(rm_handler_trigger(handler, ("Other;R" + number(kMost)).c_str()));
	EXPECT_EQ(states::settings_of(handler).size(), 1u);
	const std::string too_many = "R" + number(kMost + 1);
	EXPECT_FALSE(rm_handler_trigger(handler, ("Other;" + too_many + ";Other").c_str()));
	const Lines log = take_log_lines();
	ASSERT_EQ(log.size(), 2u);
	EXPECT_TRUE(log[0].starts_with(
		"[VEXIL][RM][__rm_find_setting] Internal error, invalid NODEID at ["))
		<< log[0];
	EXPECT_EQ(log[1] + "\n",
		  states::rule_failed("rm_handler_trigger",
				      states::rule_id(run_rules.get(), too_many.c_str())));
	EXPECT_EQ(states::settings_of(handler).size(), 1u); // found before
	EXPECT_TRUE(rm_handler_trigger(handler, "Other"));  // each trigger has its own
}

} // namespace
