// SPDX-License-Identifier: MIT

#include "rule_catalogue.h"

#include <algorithm>

#include <fmt/format.h>

#include "nodes.h"
#include "text.h"

namespace vexil_tool {

namespace {

using vexil::child_of;
using vexil::Children;
using vexil::next_of;
using vexil::WalkBudget;

/** The bytes of a record; none when many holders have shared it too often. */
vexil::Bytes record(node_d holder, int tag, WalkBudget &budget)
{
	const vexil::Bytes bytes = vexil::payload(holder);
	return extmem_fetch_tag(holder) == tag && budget.spend_bytes(bytes.size()) ? bytes
										   : vexil::Bytes{};
}

RangeInfo read_range(node_d holder, WalkBudget &budget)
{
	const vexil::Bytes bytes = record(holder, EXTMEM_TAG_RANGE_HOLDER, budget);
	if (bytes.size() < sizeof(range_desc))
		return {holder.id, VEXIL_NO_ID, kNoSlot, 1, 0};
	const auto range = vexil::load<range_desc>(bytes.data());
	const vexil::Bytes slot =
		vexil::payload(extmem_create_node_d(holder.owner, range.source_node));
	return {holder.id, range.source_node,
		slot.size() >= sizeof(u64) ? vexil::load<u64>(slot.data()) : kNoSlot, range.minData,
		range.maxData};
}

/** Siblings from @node on. */
template <typename Visit>
void each_sibling(node_d node, WalkBudget &budget, Visit visit)
{
	for (; extmem_node_isvalid(node) && budget.spend(); node = next_of(node))
		visit(node);
}

AlternativeInfo read_alternative(node_d node, WalkBudget &budget)
{
	AlternativeInfo alternative;
	const node_d description = child_of(node);
	const vexil::Bytes key = record(child_of(description), EXTMEM_TAG_KEY_HOLDER, budget);
	const size_t words = key.size() / (2 * sizeof(u64));
	for (size_t i = 0; i < words; ++i) {
		alternative.value.push_back(vexil::load<u64>(key.data() + i * sizeof(u64)));
		alternative.mask.push_back(
			vexil::load<u64>(key.data() + (words + i) * sizeof(u64)));
	}
	each_sibling(next_of(description), budget, [&](node_d condition) {
		alternative.ranges.push_back(read_range(child_of(condition), budget));
	});
	return alternative;
}

OutcomeInfo read_outcome(node_d node, WalkBudget &budget)
{
	const node_d holder = child_of(node);
	OutcomeInfo outcome{extmem_fetch_tag(holder), holder.id, {}};
	const vexil::Bytes ids = record(holder, outcome.tag, budget);
	// What evaluation reads of a record: all ids, or the one of a rule.
	const size_t most = outcome.tag == EXTMEM_TAG_NODE_HOLDER ? 1 : ids.size() / sizeof(u16);
	const bool has_ids = outcome.tag == EXTMEM_TAG_VALUE_HOLDER ||
			     outcome.tag == EXTMEM_TAG_PRESET_HOLDER ||
			     outcome.tag == EXTMEM_TAG_NODE_HOLDER;
	for (size_t i = 0; has_ids && i < most && (i + 1) * sizeof(u16) <= ids.size(); ++i)
		outcome.ids.push_back(vexil::load<u16>(ids.data() + i * sizeof(u16)));
	return outcome;
}

CaseInfo read_case(node_d node, WalkBudget &budget)
{
	CaseInfo entry;
	const node_d body = child_of(node);
	for (const node_d alternative : Children(body, budget))
		entry.alternatives.push_back(read_alternative(alternative, budget));
	each_sibling(next_of(body), budget, [&](node_d outcome) {
		entry.outcomes.push_back(read_outcome(outcome, budget));
	});
	return entry;
}

RuleInfo read_rule(node_d node, WalkBudget &budget)
{
	RuleInfo rule{};
	rule.id = node.id;
	rule.name = node_name(node, budget);
	rule.version = node_version(node, budget);
	for (const node_d entry : Children(node, budget))
		rule.cases.push_back(read_case(entry, budget));
	return rule;
}

/** A label, and what kind of source it is of. */
struct ReadLabel {
	LabelInfo info;
	SourceKind kind;
	u64 slot;
};

ReadLabel read_label(node_d node, WalkBudget &budget)
{
	ReadLabel label{{}, SourceKind::kValues, kNoSlot};
	label.info.id = node.id;
	label.info.text = node_name(node, budget);
	const vexil::Bytes field = record(child_of(node), EXTMEM_TAG_SOURCE_DESCRIPTION, budget);
	if (field.size() >= sizeof label.info.field)
		label.info.field = vexil::load<source_desc>(field.data());
	const node_d slot = vexil::find_next(node, EXTMEM_TAG_SIZE_HOLDER, budget);
	const vexil::Bytes number = vexil::payload(slot);
	if (number.size() >= sizeof label.slot) {
		label.kind = SourceKind::kNumber;
		label.slot = vexil::load<u64>(number.data());
	} else if (extmem_fetch_tag(child_of(node)) == EXTMEM_TAG_SOURCE_REDEFINE) {
		label.kind = SourceKind::kRanges;
		for (const node_d redefine : Children(node, budget))
			label.info.ranges.push_back(read_range(child_of(redefine), budget));
	}
	return label;
}

/** Puts a label to those of its source. */
void add_label(std::vector<SourceInfo> &sources, std::map<std::string, size_t> &by_name,
	       ReadLabel label)
{
	const size_t colon = label.info.text.find(':');
	std::string source = label.info.text;
	if (label.kind != SourceKind::kNumber && colon != std::string::npos) {
		source = label.info.text.substr(0, colon);
		label.info.value = label.info.text.substr(colon + 1);
	}
	const std::string key =
		lowered(source) + static_cast<char>('0' + static_cast<int>(label.kind));
	const auto [known, is_new] = by_name.emplace(key, sources.size());
	if (is_new)
		sources.push_back({source, label.kind, label.info.field, label.slot, {}});
	sources[known->second].labels.push_back(std::move(label.info));
}

} // namespace

const char *source_kind_name(SourceKind kind)
{
	switch (kind) {
	case SourceKind::kValues:
		return "values";
	case SourceKind::kNumber:
		return "number";
	case SourceKind::kRanges:
		return "ranges";
	}
	return "";
}

size_t RuleInfo::alternatives() const
{
	size_t sum = 0;
	for (const CaseInfo &entry : cases)
		sum += entry.alternatives.size();
	return sum;
}

std::vector<u16> RuleInfo::children() const
{
	std::vector<u16> ids;
	for (const CaseInfo &entry : cases) {
		for (const OutcomeInfo &outcome : entry.outcomes) {
			if (outcome.tag != EXTMEM_TAG_NODE_HOLDER)
				continue;
			for (const u16 child : outcome.ids) {
				if (std::find(ids.begin(), ids.end(), child) == ids.end())
					ids.push_back(child);
			}
		}
	}
	return ids;
}

RuleCatalogue::RuleCatalogue(const Rules &context)
    : key_bits(context.record()->used_bits), slots(context.record()->res_num)
{
	WalkBudget budget(context.record()->builder);
	std::map<std::string, size_t> by_name;
	for (const node_d holder : Children(context.record()->root, budget)) {
		const node_d node = child_of(holder);
		switch (extmem_fetch_tag(node)) {
		case EXTMEM_TAG_RULE:
			rules.push_back(read_rule(node, budget));
			break;
		case EXTMEM_TAG_SOURCE_LABEL:
			add_label(sources, by_name, read_label(node, budget));
			break;
		default:
			break;
		}
	}
	for (size_t i = 0; i < rules.size(); ++i)
		rules_by_id_.emplace(rules[i].id, i);
	// Rules whose name another one has keeps are led to by their place alone.
	for (size_t i = 0; i < rules.size(); ++i) {
		for (const u16 id : rules[i].children()) {
			const node_d child = extmem_create_node_d(&context.record()->builder, id);
			if (extmem_fetch_tag(child) == EXTMEM_TAG_RULE &&
			    rules_by_id_.emplace(id, rules.size()).second) {
				rules.push_back(read_rule(child, budget));
				rules.back().hidden = true;
			}
		}
	}
	for (size_t i = 0; i < sources.size(); ++i) {
		if (sources[i].kind == SourceKind::kNumber)
			sources_by_slot_.emplace(sources[i].slot, i);
	}
	damaged = budget.spent();
}

const RuleInfo *RuleCatalogue::rule(u16 id) const
{
	const auto found = rules_by_id_.find(id);
	return found == rules_by_id_.end() ? nullptr : &rules[found->second];
}

std::string RuleCatalogue::rule_name(u16 id) const
{
	const RuleInfo *found = rule(id);
	if (!found)
		return id == VEXIL_NO_ID ? "(not defined)" : fmt::format("(node {})", id);
	return found->name;
}

const SourceInfo *RuleCatalogue::source_of_slot(u64 slot) const
{
	const auto found = sources_by_slot_.find(slot);
	return found == sources_by_slot_.end() ? nullptr : &sources[found->second];
}

std::vector<std::string> RuleCatalogue::rule_names() const
{
	std::vector<std::string> names;
	for (const RuleInfo &rule : rules) {
		if (!rule.hidden)
			names.push_back(rule.name);
	}
	return names;
}

std::vector<std::vector<u16>> RuleCatalogue::circles(const std::vector<u16> &from) const
{
	struct Step {
		u16 rule;
		std::vector<u16> children;
		size_t next;
	};
	enum class Seen { kOnPath, kDone };
	std::map<u16, Seen> seen;
	std::vector<Step> path;
	std::vector<std::vector<u16>> found;
	const auto enter = [&](u16 id) {
		const RuleInfo *info = rule(id);
		if (info && seen.emplace(id, Seen::kOnPath).second)
			path.push_back({id, info->children(), 0});
	};
	for (const u16 start : from) {
		enter(start);
		while (!path.empty()) {
			Step &step = path.back();
			if (step.next == step.children.size()) {
				seen[step.rule] = Seen::kDone;
				path.pop_back();
				continue;
			}
			const u16 child = step.children[step.next++];
			const auto known = seen.find(child);
			if (known == seen.end()) {
				enter(child);
			} else if (known->second == Seen::kOnPath) {
				auto at = std::find_if(
					path.begin(), path.end(),
					[&](const Step &one) { return one.rule == child; });
				std::vector<u16> circle;
				for (; at != path.end(); ++at)
					circle.push_back(at->rule);
				circle.push_back(child);
				found.push_back(circle);
			}
		}
	}
	return found;
}

std::string RuleCatalogue::path_text(const std::vector<u16> &path) const
{
	std::string text;
	for (const u16 id : path)
		text += (text.empty() ? "" : " -> ") + rule_name(id);
	return text;
}

} // namespace vexil_tool
