// SPDX-License-Identifier: MIT

#include "delivery.h"

#include <algorithm>

#include <fmt/format.h>

#include "core/bytes.h"
#include "names.h"
#include "text.h"

namespace vexil_tool {

namespace {

constexpr size_t kShownBytes = 16; // of a file
constexpr u32 kAddressBits = 27;
constexpr u32 kAddressMask = (1u << kAddressBits) - 1;

const char *form_name(Form form)
{
	switch (form) {
	case Form::kHardware:
		return "hardware register";
	case Form::kSoftware:
		return "software register";
	case Form::kCustomer:
		return "customer register";
	case Form::kAddress:
		return "register word";
	}
	return "";
}

std::string hexadecimal(std::string_view bytes)
{
	std::string text;
	for (const char byte : bytes)
		text += fmt::format("{}{:02x}", text.empty() ? "" : " ",
				    static_cast<unsigned char>(byte));
	return text;
}

/** The pairs of a delivered list; the library has checked that they are there. */
std::vector<func_pair> pairs_of(const Delivered &block)
{
	const u32 count = vexil::load<u32>(block.data.data());
	std::vector<func_pair> pairs;
	for (u32 i = 0; i < count; ++i)
		pairs.push_back(vexil::load<func_pair>(block.data.data() + sizeof(reg_func) +
						       i * sizeof(func_pair)));
	return pairs;
}

/** One pair, ready to be shown. */
struct Row {
	func_pair pair;
	std::string name;
	u32 domain;  // address form, and hardware positions that the table knows
	u32 address; // the same
	u32 mask;    // the same
};

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

/** Software and customer values may be negative. */
std::string decimal(Form form, u32 value)
{
	const bool is_signed = form == Form::kSoftware || form == Form::kCustomer;
	return is_signed ? std::to_string(static_cast<s32>(value)) : std::to_string(value);
}

struct Column {
	const char *title;
	bool numbers; // stand to the right
};

/** Columns as wide as what stands in them; those that stay empty are left out. */
void print_columns(const std::vector<Column> &columns,
		   const std::vector<std::vector<std::string>> &lines)
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
	for (const std::vector<std::string> &line : lines)
		print_line([&](size_t i) { return std::string_view(line[i]); });
}

/** Domain, address and mask of a row; nothing when they are unknown. */
std::vector<std::string> location(const Row &row)
{
	if (row.mask == 0)
		return {"", "", ""};
	return {domain_text(row.domain), fmt::format("0x{:07X}", row.address),
		fmt::format("0x{:04X}", row.mask)};
}

void print_list(const Delivered &block, const RegisterNames &names)
{
	const Form form = form_of(block.tag);
	std::vector<Row> rows;
	for (const func_pair &pair : pairs_of(block))
		rows.push_back(read_row(form, pair, names));
	fmt::print("  {} ({}): {}\n", tag_name(block.tag), block.tag,
		   counted(rows.size(), form_name(form)));
	std::vector<std::vector<std::string>> lines;
	for (const Row &row : rows) {
		std::vector<std::string> line;
		if (form == Form::kAddress) {
			const u32 value = row.pair.fn_para & 0xFFFF;
			line = {domain_text(row.domain),
				fmt::format("0x{:07X}", row.address),
				fmt::format("0x{:04X}", row.mask),
				fmt::format("0x{:04X}", value),
				std::to_string(value),
				printable(row.name)};
		} else {
			line = {std::to_string(row.pair.fn_idx), printable(row.name),
				fmt::format("0x{:X}", row.pair.fn_para),
				decimal(form, row.pair.fn_para)};
			const std::vector<std::string> more = location(row);
			line.insert(line.end(), more.begin(), more.end());
		}
		lines.push_back(std::move(line));
	}
	static const std::vector<Column> kWordColumns = {
		{"domain", false}, {"address", false}, {"mask", false},
		{"value", false},  {"decimal", true},  {"registers", false},
	};
	static const std::vector<Column> kPositionColumns = {
		{"position", true}, {"name", false},    {"value", false}, {"decimal", true},
		{"domain", false},  {"address", false}, {"mask", false},
	};
	static const std::vector<Column> kNumberColumns = {
		{"number", true},  {"name", false},    {"value", false}, {"decimal", true},
		{"domain", false}, {"address", false}, {"mask", false},
	};
	if (!lines.empty())
		print_columns(form == Form::kAddress    ? kWordColumns
			      : form == Form::kHardware ? kPositionColumns
							: kNumberColumns,
			      lines);
}

/** The name under which a delivered file is stored. */
std::string file_name(const Delivered &block, const Catalogue &catalogue)
{
	const FileInfo *file = catalogue.file_at(block.data);
	return file ? file->name : "";
}

void print_file(const Delivered &block, const Catalogue &catalogue)
{
	fmt::print("  {} {}: {}, {}, CRC-32 {:08x}\n",
		   block.kind == Delivered::Kind::kTable ? "lookup table for"
							 : "algorithm file for",
		   printable(block.name), printable(file_name(block, catalogue)),
		   counted(block.data.size(), "byte"), crc32(block.data.data(), block.data.size()));
	fmt::print("       {}{}\n", hexadecimal(block.data.substr(0, kShownBytes)),
		   block.data.size() > kShownBytes ? " ..." : "");
}

OutputJson list_json(const Delivered &block, const RegisterNames &names)
{
	const Form form = form_of(block.tag);
	OutputJson pairs = OutputJson::array();
	for (const func_pair &pair : pairs_of(block)) {
		const Row row = read_row(form, pair, names);
		OutputJson entry;
		if (form == Form::kAddress) {
			entry["word"] = pair.fn_idx;
			entry["para"] = pair.fn_para;
			entry["value"] = pair.fn_para & 0xFFFF;
			entry["hex"] = fmt::format("0x{:04X}", pair.fn_para & 0xFFFF);
		} else {
			entry["position"] = pair.fn_idx;
			entry["value"] = pair.fn_para;
			entry["hex"] = fmt::format("0x{:X}", pair.fn_para);
			if (form != Form::kHardware)
				entry["signed"] = static_cast<s32>(pair.fn_para);
		}
		if (form == Form::kAddress || row.mask) {
			entry["domain"] = row.domain;
			entry["address"] = fmt::format("0x{:07X}", row.address);
			entry["mask"] = fmt::format("0x{:04X}", row.mask);
		}
		if (!row.name.empty())
			entry["name"] = row.name;
		pairs.push_back(entry);
	}
	return {{"tag", block.tag},
		{"tagName", tag_name(block.tag)},
		{"kind", "registers"},
		{"pairs", pairs}};
}

OutputJson file_json(const Delivered &block, const Catalogue &catalogue)
{
	const bool table = block.kind == Delivered::Kind::kTable;
	return {
		{"tag", block.tag},
		{"tagName", tag_name(block.tag)},
		{"kind", table ? "table" : "algorithm"},
		{table ? "handler" : "entry", block.name},
		{"file", file_name(block, catalogue)},
		{"bytes", block.data.size()},
		{"crc32", fmt::format("{:08x}", crc32(block.data.data(), block.data.size()))},
		{"first", hexadecimal(block.data.substr(0, kShownBytes))},
	};
}

} // namespace

void print_block(const Delivered &block, const RegisterNames &names, const Catalogue &catalogue)
{
	if (block.kind == Delivered::Kind::kRegisters)
		print_list(block, names);
	else
		print_file(block, catalogue);
}

OutputJson block_json(const Delivered &block, const RegisterNames &names,
		      const Catalogue &catalogue)
{
	return block.kind == Delivered::Kind::kRegisters ? list_json(block, names)
							 : file_json(block, catalogue);
}

} // namespace vexil_tool
