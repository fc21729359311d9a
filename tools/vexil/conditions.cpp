// SPDX-License-Identifier: MIT

#include "conditions.h"

#include <algorithm>

#include <fmt/format.h>

#include "text.h"

namespace vexil_tool {

namespace {

constexpr size_t kBitsPerWord = 64;
constexpr u32 kWidestField = 16;

/** The bits of a field, taken out of the words of a key. */
u64 bits_of(const std::vector<u64> &words, const source_desc &field)
{
	u64 bits = 0;
	for (u32 i = 0; i < field.width && i < kWidestField; ++i) {
		const size_t bit = size_t{field.shift} + i;
		if (bit / kBitsPerWord < words.size() &&
		    (words[bit / kBitsPerWord] >> (bit % kBitsPerWord) & 1))
			bits |= u64{1} << i;
	}
	return bits;
}

/** The words without the bits of a field. */
void clear_field(std::vector<u64> &words, const source_desc &field)
{
	for (u32 i = 0; i < field.width && i < kWidestField; ++i) {
		const size_t bit = size_t{field.shift} + i;
		if (bit / kBitsPerWord < words.size())
			words[bit / kBitsPerWord] &= ~(u64{1} << (bit % kBitsPerWord));
	}
}

const LabelInfo *label_of_code(const SourceInfo &source, u64 code)
{
	for (const LabelInfo &label : source.labels) {
		if (label.field.rank == code)
			return &label;
	}
	return nullptr;
}

std::string value_text(const SourceInfo &source, u64 code)
{
	if (source.kind == SourceKind::kNumber)
		return code ? "set" : "not set";
	const LabelInfo *label = label_of_code(source, code);
	if (label)
		return label->value;
	return code == 0 ? "not set" : fmt::format("code {}", code);
}

} // namespace

std::string interval_text(u64 first, u64 last)
{
	if (first > last)
		return fmt::format("no number ({} to {})", first, last);
	if (first == last)
		return std::to_string(first);
	if (last == ~u64{0})
		return fmt::format("{} or more", first);
	return fmt::format("{} to {}", first, last);
}

State::State(const rm_individual &individual, const RuleCatalogue &catalogue)
{
	const size_t words = catalogue.key_words();
	key.assign(individual.keyBuffer, individual.keyBuffer + words);
	mask.assign(individual.keyBuffer + words, individual.keyBuffer + 2 * words);
	numbers.assign(individual.resBuffer, individual.resBuffer + catalogue.slots);
}

Conditions::Conditions(const RuleCatalogue &catalogue, const rm_individual &individual)
    : catalogue_(catalogue), state_(individual, catalogue)
{
	for (const SourceInfo &source : catalogue.sources) {
		if (source.kind != SourceKind::kRanges && source.field.width > 0)
			fields_.push_back(&source);
	}
	std::stable_sort(fields_.begin(), fields_.end(),
			 [](const SourceInfo *a, const SourceInfo *b) {
				 return a->field.shift < b->field.shift;
			 });
}

bool Conditions::holds(const RangeInfo &range) const
{
	return range.slot < state_.numbers.size() && range.first <= state_.numbers[range.slot] &&
	       state_.numbers[range.slot] <= range.last;
}

bool Conditions::matches(const AlternativeInfo &alternative) const
{
	if (alternative.value.size() != state_.key.size())
		return false;
	for (size_t i = 0; i < state_.key.size(); ++i) {
		if ((state_.key[i] & alternative.mask[i]) != alternative.value[i])
			return false;
	}
	return std::all_of(alternative.ranges.begin(), alternative.ranges.end(),
			   [this](const RangeInfo &range) { return holds(range); });
}

/** The number of a value source, and whether it was said. */
std::string Conditions::number_text(const SourceInfo &source) const
{
	const u64 number = source.slot < state_.numbers.size() ? state_.numbers[source.slot] : 0;
	return bits_of(state_.mask, source.field) ? std::to_string(number)
						  : std::string("not set (counts as 0)");
}

Condition Conditions::field(const SourceInfo &source, u64 wanted) const
{
	const u64 code = bits_of(state_.key, source.field);
	return {source.name, value_text(source, wanted), value_text(source, code), code == wanted};
}

Condition Conditions::range(const RangeInfo &range) const
{
	const SourceInfo *source = catalogue_.source_of_slot(range.slot);
	return {source ? source->name : fmt::format("number {}", range.slot),
		interval_text(range.first, range.last), source ? number_text(*source) : "unknown",
		holds(range)};
}

const LabelInfo *Conditions::redefinition(const std::vector<RangeInfo> &ranges, size_t at,
					  const SourceInfo **source) const
{
	const LabelInfo *best = nullptr;
	for (const SourceInfo &candidate : catalogue_.sources) {
		if (candidate.kind != SourceKind::kRanges)
			continue;
		for (const LabelInfo &label : candidate.labels) {
			const size_t count = label.ranges.size();
			if (count == 0 || count > ranges.size() - at ||
			    (best && best->ranges.size() >= count))
				continue;
			bool same = true;
			for (size_t i = 0; i < count; ++i)
				same = same && label.ranges[i].same_as(ranges[at + i]);
			if (!same)
				continue;
			best = &label;
			*source = &candidate;
		}
	}
	return best;
}

Condition Conditions::redefined(const SourceInfo &source, const LabelInfo &label) const
{
	Condition condition{source.name, {}, {}, true};
	std::string ranges;
	std::string numbers;
	std::vector<std::string> said;
	for (const RangeInfo &info : label.ranges) {
		const Condition one = range(info);
		ranges +=
			fmt::format("{}{} {}", ranges.empty() ? "" : ", ", one.source, one.wanted);
		if (std::find(said.begin(), said.end(), one.source) == said.end()) {
			said.push_back(one.source);
			numbers += fmt::format("{}{} {}", numbers.empty() ? "" : ", ", one.source,
					       one.present);
		}
		condition.holds = condition.holds && one.holds;
	}
	condition.wanted = fmt::format("{} ({})", label.value, ranges);
	std::string present = "none of its values";
	for (const LabelInfo &other : source.labels) {
		const bool is_so =
			std::all_of(other.ranges.begin(), other.ranges.end(),
				    [this](const RangeInfo &info) { return holds(info); });
		if (is_so) {
			present = other.value;
			break;
		}
	}
	condition.present = fmt::format("{} ({})", present, numbers);
	return condition;
}

std::vector<Condition> Conditions::of(const AlternativeInfo &alternative) const
{
	std::vector<Condition> conditions;
	std::vector<u64> rest = alternative.mask;
	for (const SourceInfo *source : fields_) {
		if (bits_of(rest, source->field) == 0)
			continue;
		conditions.push_back(field(*source, bits_of(alternative.value, source->field)));
		clear_field(rest, source->field);
	}
	const bool foreign =
		std::any_of(rest.begin(), rest.end(), [](u64 word) { return word != 0; });
	if (foreign)
		conditions.push_back({"key bits of no source", "other bits", "as they are", false});
	for (size_t at = 0; at < alternative.ranges.size();) {
		const SourceInfo *source = nullptr;
		const LabelInfo *label = redefinition(alternative.ranges, at, &source);
		conditions.push_back(label ? redefined(*source, *label)
					   : range(alternative.ranges[at]));
		at += label ? label->ranges.size() : 1;
	}
	return conditions;
}

Failing Conditions::why_not(const CaseInfo &entry) const
{
	std::vector<std::vector<Condition>> alive; // alternatives that hold so far
	std::vector<std::string> sources;          // in the order of comparing
	for (const AlternativeInfo &alternative : entry.alternatives) {
		alive.push_back(of(alternative));
		for (const Condition &condition : alive.back()) {
			if (std::find(sources.begin(), sources.end(), condition.source) ==
			    sources.end())
				sources.push_back(condition.source);
		}
	}
	for (const std::string &source : sources) {
		Failing failing{source, {}, {}};
		std::vector<std::vector<Condition>> left;
		for (const std::vector<Condition> &alternative : alive) {
			bool holds = true;
			std::string wanted;
			for (const Condition &condition : alternative) {
				if (condition.source != source)
					continue;
				holds = holds && condition.holds;
				failing.present = condition.present;
				wanted += (wanted.empty() ? "" : " and ") + condition.wanted;
			}
			if (holds)
				left.push_back(alternative);
			else if (std::find(failing.wanted.begin(), failing.wanted.end(), wanted) ==
				 failing.wanted.end())
				failing.wanted.push_back(wanted);
		}
		if (left.empty())
			return failing;
		alive = std::move(left);
	}
	return {};
}

} // namespace vexil_tool
