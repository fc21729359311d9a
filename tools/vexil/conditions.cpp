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

bool same_bits(const source_desc &a, const source_desc &b)
{
	return a.shift == b.shift && a.width == b.width;
}

/** What a code in a field stands for; nothing for 0, which nobody has. */
std::string value_of_code(const SourceInfo &source, const source_desc &bits, u64 code)
{
	if (source.kind == SourceKind::kNumber)
		return code ? "set" : "";
	for (const LabelInfo &label : source.labels) {
		if (same_bits(label.field, bits) && label.field.rank == code)
			return label.value;
	}
	return code == 0 ? "" : fmt::format("code {}", code);
}

bool has_range(const std::vector<RangeInfo> &ranges, const RangeInfo &wanted)
{
	return std::any_of(ranges.begin(), ranges.end(),
			   [&](const RangeInfo &range) { return range.same_as(wanted); });
}

void add_new(std::vector<std::string> &texts, const std::string &text)
{
	if (std::find(texts.begin(), texts.end(), text) == texts.end())
		texts.push_back(text);
}

bool want_the_same(const std::vector<Condition> &a, const std::vector<Condition> &b)
{
	return std::equal(a.begin(), a.end(), b.begin(), b.end(),
			  [](const Condition &one, const Condition &other) {
				  return one.wanted_value == other.wanted_value &&
					 one.first == other.first && one.last == other.last;
			  });
}

/** Adds what an alternative wants; a range that stands there gets its names. */
void add_wanted(std::vector<std::vector<Condition>> &all, const std::vector<Condition> &wanted)
{
	const auto known = std::find_if(all.begin(), all.end(), [&](const auto &one) {
		return want_the_same(one, wanted);
	});
	if (known == all.end())
		return all.push_back(wanted);
	for (size_t i = 0; i < wanted.size(); ++i) {
		for (const std::string &name : wanted[i].wanted_names)
			add_new((*known)[i].wanted_names, name);
		for (const std::string &name : wanted[i].present_names)
			add_new((*known)[i].present_names, name);
	}
}

std::string in_brackets(const std::vector<std::string> &names)
{
	return names.empty() ? "" : fmt::format(" ({})", joined(names));
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

std::string wanted_text(const Condition &condition)
{
	return condition.is_number ? interval_text(condition.first, condition.last) +
					     in_brackets(condition.wanted_names)
				   : condition.wanted_value;
}

std::string number_text(const Condition &condition)
{
	return condition.is_set ? std::to_string(condition.number) : "not set, which counts as 0";
}

std::string present_text(const Condition &condition)
{
	if (!condition.is_number)
		return condition.is_set ? condition.present_value : "not set";
	return number_text(condition) + in_brackets(condition.present_names);
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
		// A source that was declared in parts has a field for each.
		for (const LabelInfo &label : source.labels) {
			const bool known = std::any_of(
				fields_.begin(), fields_.end(), [&](const Field &field) {
					return field.source == &source &&
					       same_bits(field.bits, label.field);
				});
			if (!known && source.kind != SourceKind::kRanges && label.field.width > 0)
				fields_.push_back({&source, label.field});
		}
	}
	std::stable_sort(fields_.begin(), fields_.end(), [](const Field &a, const Field &b) {
		return a.bits.shift < b.bits.shift;
	});
}

bool Conditions::holds(const RangeInfo &range) const
{
	return range.slot < state_.numbers.size() && range.first <= state_.numbers[range.slot] &&
	       state_.numbers[range.slot] <= range.last;
}

bool Conditions::holds(const LabelInfo &redefined) const
{
	return std::all_of(redefined.ranges.begin(), redefined.ranges.end(),
			   [this](const RangeInfo &range) { return holds(range); });
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

Condition Conditions::field(const Field &field, u64 wanted) const
{
	const u64 code = bits_of(state_.key, field.bits);
	Condition condition{};
	condition.source = field.source->name;
	condition.holds = code == wanted;
	condition.wanted_value = value_of_code(*field.source, field.bits, wanted);
	condition.present_value = value_of_code(*field.source, field.bits, code);
	condition.is_set = !condition.present_value.empty();
	return condition;
}

/** @of: the alternative, for the names that its ranges may have been written as. */
Condition Conditions::range(const RangeInfo &range, const AlternativeInfo &of) const
{
	const SourceInfo *source = catalogue_.source_of_slot(range.slot);
	Condition condition{};
	condition.source = source ? source->name : "a number of no source";
	condition.is_number = true;
	condition.holds = holds(range);
	condition.is_set = source && bits_of(state_.mask, source->field) != 0;
	condition.first = range.first;
	condition.last = range.last;
	condition.number = range.slot < state_.numbers.size() ? state_.numbers[range.slot] : 0;
	for (const SourceInfo &redefined : catalogue_.sources) {
		if (redefined.kind != SourceKind::kRanges)
			continue;
		const size_t names = condition.wanted_names.size();
		for (const LabelInfo &label : redefined.labels) {
			const bool all = std::all_of(
				label.ranges.begin(), label.ranges.end(),
				[&](const RangeInfo &one) { return has_range(of.ranges, one); });
			if (all && has_range(label.ranges, range))
				condition.wanted_names.push_back(label.text);
		}
		if (condition.wanted_names.size() == names)
			continue;
		for (const LabelInfo &label : redefined.labels) {
			if (!label.ranges.empty() && holds(label))
				condition.present_names.push_back(label.text);
		}
	}
	return condition;
}

std::vector<Condition> Conditions::of(const AlternativeInfo &alternative) const
{
	std::vector<Condition> conditions;
	std::vector<u64> rest = alternative.mask;
	for (const Field &known : fields_) {
		if (bits_of(rest, known.bits) == 0)
			continue;
		conditions.push_back(field(known, bits_of(alternative.value, known.bits)));
		clear_field(rest, known.bits);
	}
	const bool foreign =
		std::any_of(rest.begin(), rest.end(), [](u64 word) { return word != 0; });
	if (foreign) {
		Condition other{};
		other.source = "a part of the key that no source has";
		other.wanted_value = "something else";
		conditions.push_back(other);
	}
	for (const RangeInfo &wanted : alternative.ranges)
		conditions.push_back(range(wanted, alternative));
	return conditions;
}

Failing Conditions::why_not(const CaseInfo &entry) const
{
	std::vector<std::vector<Condition>> alive; // alternatives that hold so far
	std::vector<std::string> sources;          // in the order of comparing
	for (const AlternativeInfo &alternative : entry.alternatives) {
		alive.push_back(of(alternative));
		for (const Condition &condition : alive.back())
			add_new(sources, condition.source);
	}
	for (const std::string &source : sources) {
		Failing failing{source, {}};
		std::vector<std::vector<Condition>> left;
		for (const std::vector<Condition> &alternative : alive) {
			std::vector<Condition> wanted;
			bool holds = true;
			for (const Condition &condition : alternative) {
				if (condition.source != source)
					continue;
				holds = holds && condition.holds;
				wanted.push_back(condition);
			}
			if (holds)
				left.push_back(alternative);
			else
				add_wanted(failing.wanted, wanted);
		}
		if (left.empty())
			return failing;
		alive = std::move(left);
	}
	return {};
}

} // namespace vexil_tool
