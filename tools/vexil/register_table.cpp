// SPDX-License-Identifier: MIT

#include "register_table.h"

#include <algorithm>
#include <tuple>

#include <fmt/format.h>

#include "errors.h"
#include "json_input.h"

namespace vexil_tool {

namespace {

constexpr u32 kLastAddress = 0x07FFFFFF;
constexpr u32 kRegisterBits = 16;

struct Range {
	const char *name;
	u32 RegisterField::*value;
	u32 first;
	u32 last;
};
constexpr Range kRanges[] = {
	{"domain", &RegisterField::domain, 0, 15},
	{"addr", &RegisterField::address, 0, kLastAddress},
	{"lsb", &RegisterField::lowest_bit, 0, kRegisterBits - 1},
	{"width", &RegisterField::width, 1, kRegisterBits},
};

RegisterField read_field(const cJSON *item, const std::string &where)
{
	RegisterField field{};
	if (vexil::is_kind(item, cJSON_NULL))
		return field;
	if (!vexil::is_object(item))
		refuse(where, "is not an object");
	if (const cJSON *name = vexil::member(item, "name"); name && name->valuestring)
		field.name = name->valuestring;
	const std::string which =
		field.name.empty() ? where : fmt::format("{} ({})", where, field.name);
	for (const Range &range : kRanges) {
		const cJSON *value = vexil::member(item, range.name);
		if (!vexil::is_number(value) || value->valuelong < range.first ||
		    value->valuelong > range.last)
			refuse(which, fmt::format("\"{}\" must be a number from {} to {}",
						  range.name, range.first, range.last));
		field.*range.value = static_cast<u32>(value->valuelong);
	}
	if (field.lowest_bit + field.width > kRegisterBits)
		refuse(which, fmt::format("{} bits from bit {} do not fit into 16", field.width,
					  field.lowest_bit));
	field.valid = true;
	return field;
}

u32 mask_of(const RegisterField &field)
{
	return ((1u << field.width) - 1) << field.lowest_bit;
}

} // namespace

RegisterTable RegisterTable::read(const std::string &path, Console &console)
{
	const Json document = read_json(path, Root::kArray, console);
	RegisterTable table;
	for (const cJSON *item : vexil::items(document.get())) {
		const auto position = static_cast<u32>(table.fields_.size());
		table.fields_.push_back(
			read_field(item, fmt::format("{}: entry {}", path, position)));
		if (table.fields_.back().valid)
			table.by_address_.push_back(position);
	}
	if (table.fields_.empty())
		refuse(path, "there is no register in it");
	const auto place = [&](u32 position) {
		const RegisterField &field = table.fields_[position];
		return std::tuple(field.domain, field.address, field.lowest_bit, position);
	};
	std::sort(table.by_address_.begin(), table.by_address_.end(),
		  [&](u32 a, u32 b) { return place(a) < place(b); });
	return table;
}

const RegisterField *RegisterTable::field(u32 position) const
{
	return position < fields_.size() && fields_[position].valid ? &fields_[position] : nullptr;
}

std::vector<std::string> RegisterTable::names_at(u32 domain, u32 address, u32 mask) const
{
	const auto word = [&](u32 position) {
		return std::tuple(fields_[position].domain, fields_[position].address);
	};
	const std::tuple wanted(domain, address);
	auto at = std::lower_bound(
		by_address_.begin(), by_address_.end(), wanted,
		[&](u32 position, const auto &value) { return word(position) < value; });
	std::vector<std::string> names;
	for (; at != by_address_.end() && word(*at) == wanted; ++at) {
		const RegisterField &field = fields_[*at];
		if (mask_of(field) & mask)
			names.push_back(field.name.empty() ? fmt::format("#{}", *at) : field.name);
	}
	return names;
}

std::vector<ST_PQ_REG_INFO> RegisterTable::rows() const
{
	std::vector<ST_PQ_REG_INFO> rows;
	for (const RegisterField &field : fields_)
		rows.push_back({static_cast<EN_PQ_TIME_DOMAIN>(field.domain), field.address,
				field.lowest_bit << 8 | field.width << 16, field.valid});
	return rows;
}

const char *domain_name(u32 domain)
{
	static constexpr const char *kNames[] = {
		"SRC0",       "SRC1",      "IP",        "OPF", "OPB", "OP2", "DISP", "HDR",
		"METER_YHSL", "METER_HDR", "METER_OBJ", "UCD", "SRC", "GOP", "VD",   "DIP",
	};
	return domain < sizeof kNames / sizeof kNames[0] ? kNames[domain] : nullptr;
}

} // namespace vexil_tool
