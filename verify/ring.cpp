// SPDX-License-Identifier: MIT
//
// Rules that lead back to themselves: a search in depth over the rules of a sound image, which
// keeps its state in the walk's bits and in a few hundred bytes, however deep it goes.
//
// The bits of a sound rule are all set at first, and then mean:
//
//	rule      not met yet
//	property  the rule, and all that it leads to, has not been left yet
//	outcome   not the one by which the search left its rule to come back later
//
// A rule that is left by its last outcome is not come back to. It stays "not left" until a rule
// before it is come back to; then the last outcomes lead along all rules to be marked.

#include "rm/layout.h"
#include "verify/walk.h"

namespace {

using vexil::ImageWalk;
using vexil::kNoNode;

/** An outcome that leads to a rule, and the case that it belongs to. */
struct Edge {
	u16 holder; // of the case; kNoNode: there is no such outcome
	u16 outcome;

	explicit operator bool() const { return holder != kNoNode; }
};
constexpr Edge kNoEdge{kNoNode, kNoNode};

class RuleGraph {
public:
	explicit RuleGraph(ImageWalk &walk) : walk_(walk) {}

	[[nodiscard]] u16 target(u16 outcome) const
	{
		return walk_.value<u16>(walk_.child(outcome));
	}
	/** @steps, here and below, is raised by the cases and outcomes that were passed. */
	[[nodiscard]] Edge first(u16 rule, size_t *steps = nullptr) const
	{
		return find(walk_.child(rule), kNoNode, steps);
	}
	[[nodiscard]] Edge after(Edge edge, size_t *steps = nullptr) const
	{
		const u16 outcome = walk_.next(edge.outcome);
		return outcome != kNoNode ? find(edge.holder, outcome, steps)
					  : find(walk_.next(edge.holder), kNoNode, steps);
	}
	[[nodiscard]] Edge last(u16 rule) const
	{
		Edge found = kNoEdge;
		for (Edge edge = first(rule); edge; edge = after(edge))
			found = edge;
		return found;
	}
	/** The edge that the search will come back to. */
	[[nodiscard]] Edge open(u16 rule) const
	{
		Edge edge = first(rule);
		while (edge && !is_open(edge.outcome))
			edge = after(edge);
		return edge;
	}

	[[nodiscard]] bool is_new(u16 rule) const { return walk_.reached().has(rule); }
	void meet(u16 rule) { walk_.reached().clear(rule); }
	[[nodiscard]] bool is_left(u16 rule) const
	{
		return !walk_.reached().has(walk_.next(rule));
	}
	void leave(u16 rule) { walk_.reached().clear(walk_.next(rule)); }
	[[nodiscard]] bool is_open(u16 outcome) const { return !walk_.reached().has(outcome); }
	void set_open(u16 outcome) { walk_.reached().clear(outcome); }
	void set_done(u16 outcome) { walk_.reached().set(outcome); }

	[[nodiscard]] ImageWalk &walk() const { return walk_; }

private:
	/** The first edge from @outcome of the case on; from its first when that is kNoNode. */
	[[nodiscard]] Edge find(u16 holder, u16 outcome, size_t *steps) const
	{
		size_t passed = 0;
		Edge found = kNoEdge;
		for (; holder != kNoNode && !found;
		     holder = walk_.next(holder), outcome = kNoNode) {
			const u16 body = walk_.child(holder);
			const bool matches = walk_.child(body) != kNoNode;
			if (outcome == kNoNode) {
				++passed;
				outcome =
					matches ? walk_.next(body) : kNoNode; // or it leads nowhere
			}
			for (; outcome != kNoNode && !found; outcome = walk_.next(outcome)) {
				++passed;
				if (walk_.tag(walk_.child(outcome)) == EXTMEM_TAG_NODE_HOLDER &&
				    target(outcome) != kNoNode)
					found = {holder, outcome};
			}
		}
		if (steps)
			*steps += passed;
		return found;
	}

	ImageWalk &walk_;
};

/**
 * The edges that the search will come back to, from its start on. The last ones are kept; the graph
 * tells those before again when they are needed, from a marked one on. Marks stand where the way
 * from one to the next is kSpan steps long: what is told again is short, however far rules reach.
 */
class Trail {
public:
	void begin(u16 rule)
	{
		start_ = rule;
		depth_ = 0;
		first_kept_ = 0;
		num_marks_ = 0;
		steps_ = 0;
	}
	[[nodiscard]] bool empty() const { return depth_ == 0; }
	[[nodiscard]] u16 start() const { return start_; }
	[[nodiscard]] Edge top() const { return kept_[depth_ - first_kept_ - 1]; }
	/** To be raised by every step of the search, but for those that it takes a second time. */
	[[nodiscard]] size_t *steps() { return &steps_; }
	void push(RuleGraph &graph, Edge edge);
	Edge pop(RuleGraph &graph);

private:
	struct Mark {
		Edge edge;
		u16 at;
	};
	static constexpr size_t kStep = 14;
	static constexpr size_t kKept = 2 * kStep;
	static constexpr size_t kSpan = 1024;
	/** Cases and outcomes are two nodes each, and the search passes each once. */
	static constexpr size_t kMarks = vexil::kMaxNodes / 2 / kSpan + 1;

	void tell_again(const RuleGraph &graph);
	void keep(size_t at, Edge edge)
	{
		if (at >= first_kept_)
			kept_[at - first_kept_] = edge;
	}

	size_t depth_ = 0;
	size_t first_kept_ = 0;
	// Since the last mark. Where that one is gone, kSpan: the next edge becomes one in its
	// place.
	size_t steps_ = 0;
	size_t num_marks_ = 0;
	u16 start_ = kNoNode;
	Edge kept_[kKept];
	Mark marks_[kMarks];
};

void Trail::push(RuleGraph &graph, Edge edge)
{
	if (depth_ - first_kept_ == kKept) {
		memmove(kept_, kept_ + kStep, kStep * sizeof *kept_);
		first_kept_ += kStep;
	}
	keep(depth_, edge);
	if (steps_ >= kSpan && num_marks_ < kMarks) {
		marks_[num_marks_++] = {edge, static_cast<u16>(depth_)};
		steps_ = 0;
	}
	++depth_;
	graph.set_open(edge.outcome);
}

Edge Trail::pop(RuleGraph &graph)
{
	const Edge edge = top();
	graph.set_done(edge.outcome);
	--depth_;
	if (num_marks_ > 0 && marks_[num_marks_ - 1].at == depth_) {
		--num_marks_;
		steps_ = kSpan;
	}
	if (depth_ == first_kept_ && depth_ > 0)
		tell_again(graph);
	return edge;
}

/** Fills the kept edges with the last ones, as far back as the last mark. */
void Trail::tell_again(const RuleGraph &graph)
{
	first_kept_ = depth_ > kKept ? depth_ - kKept : 0;
	size_t at = 0;
	u16 rule = start_;
	if (num_marks_ > 0) {
		const Mark &mark = marks_[num_marks_ - 1];
		at = mark.at;
		first_kept_ = first_kept_ > at ? first_kept_ : at;
		keep(at++, mark.edge);
		rule = graph.target(mark.edge.outcome);
	}
	while (at < depth_) {
		const Edge edge = graph.open(rule);
		if (edge)
			keep(at++, edge);
		rule = graph.target((edge ? edge : graph.last(rule)).outcome);
	}
}

/** Marks @rule and those that its last outcomes lead to, as far as they have not been left. */
void leave_from(RuleGraph &graph, u16 rule)
{
	while (!graph.is_left(rule)) {
		graph.leave(rule);
		const Edge last = graph.last(rule);
		if (last)
			rule = graph.target(last.outcome);
	}
}

/** The next edge from @edge on that leads to a rule which has not been left; kNoEdge without one.
 */
Edge not_left(const RuleGraph &graph, Edge edge, size_t *steps)
{
	while (edge && graph.is_left(graph.target(edge.outcome)))
		edge = graph.after(edge, steps);
	return edge;
}

bool search(RuleGraph &graph, Trail &trail, u16 start)
{
	trail.begin(start);
	graph.meet(start);
	Edge edge = graph.first(start, trail.steps());
	for (;;) {
		edge = not_left(graph, edge, trail.steps());
		if (!edge) {
			leave_from(graph, trail.empty() ? trail.start()
							: graph.target(trail.top().outcome));
			if (trail.empty())
				return true;
			edge = graph.after(trail.pop(graph));
			continue;
		}
		const u16 rule = graph.target(edge.outcome);
		if (!graph.is_new(rule))
			return graph.walk().fail_in(graph.walk().child(edge.outcome),
						    VEXIL_IMAGE_RULE_RING, 0, rule);
		if (graph.after(edge, trail.steps()))
			trail.push(graph, edge);
		graph.meet(rule);
		edge = graph.first(rule, trail.steps());
	}
}

} // namespace

namespace vexil {

bool verify_rings(ImageWalk &walk)
{
	RuleGraph graph(walk);
	Trail trail;
	for (size_t i = 0; i < walk.slots(); ++i) {
		const auto id = static_cast<u16>(i);
		if (walk.tag(id) == EXTMEM_TAG_RULE && graph.is_new(id) &&
		    !search(graph, trail, id))
			return false;
	}
	return true;
}

} // namespace vexil
