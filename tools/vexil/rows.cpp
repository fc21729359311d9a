// SPDX-License-Identifier: MIT

#include "rows.h"

#include <algorithm>
#include <string_view>

#include <fmt/format.h>

#include "core/bytes.h"
#include "text.h"

namespace vexil_tool {

std::vector<func_pair> pairs_of(const Delivered &block)
{
	const u32 count = vexil::load<u32>(block.data.data());
	std::vector<func_pair> pairs;
	for (u32 i = 0; i < count; ++i)
		pairs.push_back(vexil::load<func_pair>(block.data.data() + sizeof(reg_func) +
						       i * sizeof(func_pair)));
	return pairs;
}

Row read_row(Form form, const func_pair &pair, const RegisterNames &names)
{
	Row row{pair, {}, 0, 0, 0};
	if (form == Form::kAddress) {
		row.domain = pair.fn_idx >> kAddressBits;
		row.address = pair.fn_idx & kAddressMask;
		row.mask = pair.fn_para >> 16;
		row.name = joined(names.table().names_at(row.domain, row.address, row.mask));
		return row;
	}
	row.name = names.name(form, pair.fn_idx);
	const RegisterField *field =
		form == Form::kHardware ? names.table().field(pair.fn_idx) : nullptr;
	if (field) {
		row.domain = field->domain;
		row.address = field->address;
		row.mask = ((1u << field->width) - 1) << field->lowest_bit;
	}
	return row;
}

std::string domain_text(u32 domain)
{
	const char *name = domain_name(domain);
	return name ? name : fmt::format("domain {}", domain);
}

std::string decimal(Form form, u32 value)
{
	const bool is_signed = form == Form::kSoftware || form == Form::kCustomer;
	return is_signed ? std::to_string(static_cast<s32>(value)) : std::to_string(value);
}

std::vector<std::string> location(const Row &row)
{
	if (row.mask == 0)
		return {"", "", ""};
	return {domain_text(row.domain), fmt::format("0x{:07X}", row.address),
		fmt::format("0x{:04X}", row.mask)};
}

void print_columns(const std::vector<Column> &columns,
		   const std::vector<std::vector<std::string>> &lines, size_t most)
{
	std::vector<size_t> widths(columns.size());
	for (size_t i = 0; i < columns.size(); ++i) {
		for (const std::vector<std::string> &line : lines)
			widths[i] = std::max(widths[i], line[i].size());
		if (widths[i] > 0)
			widths[i] = std::max(widths[i], std::string_view(columns[i].title).size());
	}
	const auto print_line = [&](const auto &cell) {
		std::string text = "     ";
		for (size_t i = 0; i < columns.size(); ++i) {
			if (widths[i] > 0)
				text += columns[i].numbers
						? fmt::format("  {:>{}}", cell(i), widths[i])
						: fmt::format("  {:<{}}", cell(i), widths[i]);
		}
		text.erase(text.find_last_not_of(' ') + 1);
		fmt::print("{}\n", text);
	};
	print_line([&](size_t i) { return std::string_view(columns[i].title); });
	for (size_t at = 0; at < lines.size() && at < most; ++at)
		print_line([&](size_t i) { return std::string_view(lines[at][i]); });
	if (lines.size() > most)
		fmt::print("       ... {} more\n", grouped(lines.size() - most));
}

} // namespace vexil_tool
