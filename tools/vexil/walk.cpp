// SPDX-License-Identifier: MIT

#include "walk.h"

#include <algorithm>

namespace vexil_tool {

namespace {

/** More ids than one evaluation of the library selects. */
constexpr size_t kMostSelected = size_t{1} << 24;

} // namespace

Walk::Walk(const RuleCatalogue &catalogue, const rm_individual &state,
	   const std::vector<u16> &wanted)
    : catalogue_(catalogue), conditions_(catalogue, state)
{
	for (const u16 id : wanted) {
		if (stopped_.empty())
			walk(id);
	}
}

Answer Walk::answer(const RuleInfo &rule) const
{
	Answer answer{};
	answer.rule = &rule;
	for (const CaseInfo &entry : rule.cases) {
		++answer.number;
		const auto match = std::find_if(
			entry.alternatives.begin(), entry.alternatives.end(),
			[this](const AlternativeInfo &one) { return conditions_.matches(one); });
		if (match != entry.alternatives.end()) {
			answer.matched = &entry;
			answer.conditions = conditions_.of(*match);
			break;
		}
		answer.failed.push_back(conditions_.why_not(entry));
	}
	return answer;
}

std::string Walk::circle(u16 id) const
{
	std::vector<u16> ids;
	for (const Step &step : path_) {
		if (!ids.empty() || step.answer->rule->id == id)
			ids.push_back(step.answer->rule->id);
	}
	ids.push_back(id);
	return catalogue_.path_text(ids);
}

std::vector<u16> &Walk::settings_now()
{
	return path_.empty() ? settings_ : path_.back().answer->settings;
}

std::vector<u16> &Walk::presets_now()
{
	return path_.empty() ? presets_ : path_.back().answer->presets;
}

void Walk::add(std::vector<u16> &to, const std::vector<u16> &ids)
{
	if (to.size() + ids.size() > kMostSelected)
		stopped_ = kTooManyRules;
	else
		to.insert(to.end(), ids.begin(), ids.end());
}

void Walk::enter(u16 id)
{
	const RuleInfo *rule = catalogue_.rule(id);
	if (!rule) {
		stopped_ = "it leads to a rule that is not defined";
		return;
	}
	const auto [known, is_new] = answers_.try_emplace(id);
	Answer &found = known->second;
	if (!is_new && found.progress == Answer::Progress::kOnPath) {
		stopped_ = "it leads in a circle: " + circle(id);
		return;
	}
	entries_.push_back({&found, path_.size(), !is_new});
	if (is_new) {
		found = answer(*rule);
		path_.push_back({&found, 0});
		return;
	}
	add(settings_now(), found.settings);
	add(presets_now(), found.presets);
}

void Walk::leave()
{
	Answer &done = *path_.back().answer;
	done.progress = Answer::Progress::kDone;
	path_.pop_back();
	add(settings_now(), done.settings);
	add(presets_now(), done.presets);
}

void Walk::walk(u16 id)
{
	enter(id);
	while (!path_.empty() && stopped_.empty()) {
		Step &step = path_.back();
		const CaseInfo *matched = step.answer->matched;
		if (!matched || step.outcome == matched->outcomes.size()) {
			leave();
			continue;
		}
		const OutcomeInfo &outcome = matched->outcomes[step.outcome++];
		if (outcome.tag == EXTMEM_TAG_VALUE_HOLDER)
			add(step.answer->settings, outcome.ids);
		else if (outcome.tag == EXTMEM_TAG_PRESET_HOLDER)
			add(step.answer->presets, outcome.ids);
		else if (outcome.tag == EXTMEM_TAG_NODE_HOLDER && !outcome.ids.empty())
			enter(outcome.ids.front());
	}
}

} // namespace vexil_tool
