// SPDX-License-Identifier: MIT

#include "register_state.h"

#include <algorithm>

namespace vexil_tool {

namespace {

constexpr u32 kRegisterBits = 16;
constexpr u32 kRegisterMask = (1u << kRegisterBits) - 1;

} // namespace

void RegisterState::write(const Delivered &block, const std::string &label)
{
	const Form form = form_of(block.tag);
	if (labels_.empty() || labels_.back() != label)
		labels_.push_back(label);
	const size_t writer = labels_.size() - 1;
	for (const func_pair &pair : pairs_of(block)) {
		Written &written = form == Form::kAddress ? words_[pair.fn_idx]
							  : numbers_[{form, pair.fn_idx}];
		written.last = writer;
		++written.writes;
		if (form != Form::kAddress) {
			written.value = pair.fn_para;
			continue;
		}
		const u32 mask = pair.fn_para >> kRegisterBits;
		written.value = (written.value & ~mask) | (pair.fn_para & mask & kRegisterMask);
		written.mask |= mask;
		for (u32 bit = 0; bit < kRegisterBits; ++bit) {
			if (mask >> bit & 1)
				written.writer[bit] = writer;
		}
	}
}

std::vector<WrittenRegister> RegisterState::registers(Form form) const
{
	std::vector<WrittenRegister> found;
	if (form != Form::kAddress) {
		for (auto at = numbers_.lower_bound({form, 0});
		     at != numbers_.end() && at->first.first == form; ++at)
			found.push_back(
				{read_row(form, {at->first.second, at->second.value}, names_),
				 {labels_[at->second.last]},
				 at->second.writes});
		return found;
	}
	for (const auto &[word, written] : words_) {
		std::vector<size_t> writers;
		for (u32 bit = 0; bit < kRegisterBits; ++bit) {
			if (written.mask >> bit & 1)
				writers.push_back(written.writer[bit]);
		}
		if (writers.empty())
			writers.push_back(written.last);
		std::sort(writers.begin(), writers.end());
		std::vector<std::string> labels;
		for (const size_t writer : writers) {
			if (std::find(labels.begin(), labels.end(), labels_[writer]) ==
			    labels.end())
				labels.push_back(labels_[writer]);
		}
		const u32 para = written.mask << kRegisterBits | (written.value & kRegisterMask);
		found.push_back({read_row(form, {word, para}, names_), labels, written.writes});
	}
	return found;
}

} // namespace vexil_tool
