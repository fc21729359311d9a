// SPDX-License-Identifier: MIT
//
// Rules that lead back to themselves: small ones by hand, and graphs of every shape against a
// search that keeps its way on a stack of its own.
#include "tests/support/verify.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <random>

namespace {

using namespace vexil_test;

/** Which rules each rule leads to, in the order of its outcomes. */
using Graph = std::vector<std::vector<std::size_t>>;

/** A rule image of one key bit in which rules lead to each other. */
class GraphImage {
public:
	/** @per_case outcomes stand in one case. */
	explicit GraphImage(const Graph &graph, std::size_t per_case = 3)
	{
		for (std::size_t i = 0; i < graph.size(); ++i)
			rules_.push_back(plan_.rule("r" + std::to_string(i)));
		holders_.resize(graph.size());
		for (std::size_t i = 0; i < graph.size(); ++i) {
			u16 body = kNoId;
			for (std::size_t j = 0; j < graph[i].size(); ++j) {
				if (j % per_case == 0) {
					body = plan_.add_case(rules_[i]);
					plan_.alternative(body, {1}, {1});
				}
				holders_[i].push_back(plan_.outcome(body, EXTMEM_TAG_NODE_HOLDER,
								    {rules_[graph[i][j]]}));
			}
		}
		plan_.used_bits(1);
	}

	[[nodiscard]] Fault fault() const { return fault_of(plan_); }
	/** The answer when the @edge-th outcome of @from closes a ring with @to. */
	[[nodiscard]] Fault ring(std::size_t from, std::size_t edge, std::size_t to) const
	{
		const u16 holder = holders_[from][edge];
		return {VEXIL_IMAGE_RULE_RING, static_cast<u32>(plan_.write().record_at(holder)),
			holder, rules_[to]};
	}

private:
	RuleImage plan_;
	std::vector<u16> rules_;
	std::vector<std::vector<u16>> holders_;
};

/** The answer of a search in depth from each rule in turn. */
Fault expected(const Graph &graph, const GraphImage &image)
{
	enum State : char { kNew, kOpen, kDone };
	std::vector<State> states(graph.size(), kNew);
	std::vector<std::pair<std::size_t, std::size_t>> way; // rule, its next edge
	for (std::size_t start = 0; start < graph.size(); ++start) {
		if (states[start] != kNew)
			continue;
		states[start] = kOpen;
		way.emplace_back(start, 0);
		while (!way.empty()) {
			auto &[rule, edge] = way.back();
			if (edge == graph[rule].size()) {
				states[rule] = kDone;
				way.pop_back();
				continue;
			}
			const std::size_t to = graph[rule][edge];
			if (states[to] == kOpen)
				return image.ring(rule, edge, to);
			++edge;
			if (states[to] == kNew) {
				states[to] = kOpen;
				way.emplace_back(to, 0);
			}
		}
	}
	return kSound;
}

void expect_as_searched(const Graph &graph, std::size_t per_case = 3)
{
	const GraphImage image(graph, per_case);
	EXPECT_EQ(image.fault(), expected(graph, image));
}

TEST(VerifyRings, RuleThatLeadsToItself)
{
	const GraphImage image(Graph{{0}});
	EXPECT_EQ(image.fault(), image.ring(0, 0, 0));
}

TEST(VerifyRings, RulesThatLeadToEachOther)
{
	const GraphImage image(Graph{{1}, {0}});
	EXPECT_EQ(image.fault(), image.ring(1, 0, 0));
}

TEST(VerifyRings, RingBehindAnotherWay)
{
	const GraphImage image(Graph{{1, 2}, {3}, {3, 0}, {}});
	EXPECT_EQ(image.fault(), image.ring(2, 1, 0));
}

TEST(VerifyRings, DiamondsAreNone)
{
	const GraphImage image(Graph{{1, 2}, {3}, {3}, {4, 4}, {5, 5}, {}});
	EXPECT_EQ(image.fault(), kSound);
}

TEST(VerifyRings, CaseThatMatchesNothingLeadsNowhere)
{
	RuleImage plan;
	const u16 rule = plan.rule("R");
	const u16 body = plan.add_case(rule);
	plan.outcome(body, EXTMEM_TAG_NODE_HOLDER, {rule});
	EXPECT_EQ(fault_of(plan), kSound);
}

TEST(VerifyRings, RuleThatWasNeverDefinedLeadsNowhere)
{
	RuleImage plan;
	const u16 body = plan.add_case(plan.rule("R"));
	plan.alternative(body, {1}, {1});
	plan.outcome(body, EXTMEM_TAG_NODE_HOLDER, {kNoId});
	EXPECT_EQ(fault_of(plan), kSound);
}

TEST(VerifyRings, OtherOutcomesBetweenChildren)
{
	RuleImage plan;
	const u16 rule = plan.rule("R");
	const u16 leaf = plan.rule("Leaf");
	const u16 body = plan.add_case(rule);
	plan.alternative(body, {1}, {1});
	plan.outcome(body, EXTMEM_TAG_NODE_HOLDER, {leaf});
	plan.outcome(body, EXTMEM_TAG_VALUE_HOLDER, {7});
	const u16 back = plan.outcome(body, EXTMEM_TAG_NODE_HOLDER, {rule});
	EXPECT_EQ(fault_of(plan),
		  (Fault{VEXIL_IMAGE_RULE_RING, static_cast<u32>(plan.write().record_at(back)),
			 back, rule}));
}

TEST(VerifyRings, RingOfRulesThatAreNotBelowTheRoot)
{
	RuleImage plan;
	const u16 rule = plan.add(EXTMEM_TAG_RULE);
	const u16 property = plan.name(rule, "R");
	const u16 version = plan.add(EXTMEM_TAG_VERSION);
	plan.child(version, plan.add_value(EXTMEM_TAG_VERSION_HOLDER, vexil_version{2, 0, 0}));
	plan.next(property, version);
	const u16 body = plan.add_case(rule);
	plan.alternative(body, {1}, {1});
	const u16 back = plan.outcome(body, EXTMEM_TAG_NODE_HOLDER, {rule});
	EXPECT_EQ(fault_of(plan),
		  (Fault{VEXIL_IMAGE_RULE_RING, static_cast<u32>(plan.write().record_at(back)),
			 back, rule}));
}

TEST(VerifyRings, DamageIsReportedBeforeARing)
{
	RuleImage plan;
	const u16 rule = plan.rule("R");
	const u16 body = plan.add_case(rule);
	plan.alternative(body, {1}, {1});
	plan.outcome(body, EXTMEM_TAG_NODE_HOLDER, {rule});
	const u16 odd = plan.outcome(body, EXTMEM_TAG_VALUE_HOLDER, {kNoId});
	EXPECT_EQ(fault_of(plan),
		  (Fault{VEXIL_IMAGE_OUTCOME, static_cast<u32>(plan.write().record_at(odd)), odd,
			 kNoId}));
}

/** 0 leads to 1, 1 to 2 ... @edges times each, and the last one to @last. */
Graph chain(std::size_t length, std::size_t edges, std::vector<std::size_t> last = {})
{
	Graph graph(length);
	for (std::size_t i = 0; i + 1 < length; ++i)
		graph[i].assign(edges, i + 1);
	graph.back() = std::move(last);
	return graph;
}

TEST(VerifyRings, LongChains)
{
	for (const std::size_t length : {2, 20, 21, 40, 41, 60, 61, 119, 120, 121, 500, 3000}) {
		expect_as_searched(chain(length, 1));
		expect_as_searched(chain(length, 2));
		expect_as_searched(chain(length, 1, {0}));
		expect_as_searched(chain(length, 2, {0}));
		expect_as_searched(chain(length, 2, {length / 2}));
	}
}

TEST(VerifyRings, ChainOfAsManyRulesAsThereCanBe)
{
	expect_as_searched(chain(4300, 2));
	expect_as_searched(chain(4300, 2, {17}));
}

TEST(VerifyRings, LongWaysBackAndForthAcrossWhatIsRemembered)
{
	// Each rule of a long way leads, after the next one, to a way of its own.
	for (const std::size_t spur : {1, 19, 20, 21, 39, 40, 41, 59, 61}) {
		Graph graph = chain(150, 1);
		for (std::size_t i = 0; i + 1 < 150; i += 13) {
			std::size_t from = i;
			for (std::size_t j = 0; j < spur; ++j) {
				graph.emplace_back();
				graph[from].push_back(graph.size() - 1);
				if (j + 1 < spur)
					graph.back() = {149};
				from = graph.size() - 1;
			}
		}
		expect_as_searched(graph);
		graph.back() = {3};
		expect_as_searched(graph);
	}
}

TEST(VerifyRings, WhatFollowsALongWayIsNotForgotten)
{
	// Each rule leads to one of its own, to the next, and to another of its own: the search
	// goes on by its second outcome, and comes back to each for the third.
	constexpr std::size_t kLength = 200;
	Graph graph = chain(kLength, 1);
	for (std::size_t i = 0; i + 1 < kLength; ++i) {
		const std::size_t first = graph.size();
		graph.insert(graph.end(), 2, {});
		graph[i] = {first, i + 1, first + 1};
	}
	expect_as_searched(graph);
	for (const std::size_t at :
	     {0, 1, 18, 19, 20, 21, 39, 40, 58, 59, 60, 61, 100, 120, 179, 198}) {
		SCOPED_TRACE(at);
		const std::size_t third = graph[at][2];
		graph[third] = {at / 2};
		const GraphImage image(graph);
		EXPECT_EQ(image.fault(), image.ring(third, 0, at / 2));
		graph[third].clear();
	}
}

/**
 * A way of @length rules with a leaf each, to which the search comes back; behind it @between rules
 * that lead on only, the first one by the last of @wide outcomes; then a rule from which @spurs
 * ways of @length begin.
 */
Graph comb(std::size_t length, std::size_t between, std::size_t wide, std::size_t spurs)
{
	Graph graph(1); // a leaf for all
	const auto way = [&](std::size_t from) {
		for (std::size_t i = 0; i < length; ++i) {
			const std::size_t next = graph.size();
			graph.insert(graph.end(), 2, {});
			graph[from].insert(graph[from].end(), {next, next + 1});
			from = next;
		}
		return from;
	};
	graph.emplace_back();
	std::size_t from = way(1);
	graph[from].assign(wide, 0);
	for (std::size_t i = 0; i < between; ++i) {
		graph[from].push_back(graph.size());
		from = graph.size();
		graph.emplace_back();
	}
	for (std::size_t i = 0; i < spurs; ++i)
		way(from);
	return graph;
}

TEST(VerifyRings, FarReachingRulesOnTheWayBack)
{
	for (const auto &[between, wide] : {std::pair<std::size_t, std::size_t>{600, 0},
					    {1, 1100},
					    {1, 5000},
					    {300, 700},
					    {1500, 2000}}) {
		for (const std::size_t length : {1, 14, 29, 49}) {
			SCOPED_TRACE(testing::Message()
				     << between << ", " << wide << ", " << length);
			Graph graph = comb(length, between, wide, 6);
			expect_as_searched(graph, 60);
			// Rings that are closed late, on the way back to where the search began.
			for (std::size_t i = 0; i < length; i += 1 + length / 3) {
				const std::size_t leaf = 3 + 2 * i;
				graph[leaf] = {i == 0 ? 1 : 2 * i};
				expect_as_searched(graph, 60);
				graph[leaf].clear();
			}
			graph.back() = {2};
			expect_as_searched(graph, 60);
			graph.back().clear();
			// Leaves to where the way went on, which has been left by then.
			for (std::size_t i = 0; i < length; i += 3)
				graph[3 + 2 * i] = {2 + 2 * i};
			expect_as_searched(graph, 60);
		}
	}
}

TEST(VerifyRings, WideRulesOneBehindTheOther)
{
	// Each is wide enough for a mark of its own, and is come back to in its midst and at its
	// end.
	constexpr std::size_t kRules = 9;
	constexpr std::size_t kWide = 1100;
	Graph graph(2 * kRules + 1);
	for (std::size_t i = 0; i < kRules; ++i) {
		graph[i].assign(kWide, 2 * kRules);
		graph[i].push_back(i + 1);
		graph[i].insert(graph[i].end(), kWide, 2 * kRules);
		graph[i].push_back(kRules + 1 + i % (kRules - 1));
	}
	expect_as_searched(graph, 60);
	graph[kRules + 1] = {kRules - 2, 0};
	expect_as_searched(graph, 60);
}

TEST(VerifyRings, GraphsAtRandom)
{
	constexpr unsigned kFirstSeed = 55001;
	std::size_t rings = 0;
	for (unsigned seed = kFirstSeed; seed < kFirstSeed + 600; ++seed) {
		SCOPED_TRACE(seed);
		std::mt19937 random(seed);
		const auto below = [&](std::size_t limit) { return random() % limit; };
		const std::size_t count = 1 + below(seed % 10 == 0 ? 400 : 30);
		// A hidden order keeps most graphs without rings, however long their ways are.
		std::vector<std::size_t> order(count);
		std::iota(order.begin(), order.end(), 0);
		std::shuffle(order.begin(), order.end(), random);
		Graph graph(count);
		for (std::size_t i = 0; i + 1 < count; ++i) {
			const std::size_t edges = below(5);
			for (std::size_t j = 0; j < edges; ++j) {
				const std::size_t reach = below(3) ? 1 : count - 1 - i;
				graph[order[i]].push_back(order[i + 1 + below(reach)]);
			}
		}
		if (seed % 3 == 0)
			graph[order[below(count)]].push_back(order[below(count)]);
		const GraphImage image(graph, 1 + seed % 3);
		const Fault answer = expected(graph, image);
		rings += answer.code == VEXIL_IMAGE_RULE_RING;
		EXPECT_EQ(image.fault(), answer);
	}
	EXPECT_GT(rings, 60u);
	EXPECT_LT(rings, 300u);
}

} // namespace
