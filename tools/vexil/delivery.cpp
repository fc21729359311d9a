// SPDX-License-Identifier: MIT

#include "delivery.h"

#include <fmt/format.h>

#include "names.h"
#include "rows.h"
#include "text.h"

namespace vexil_tool {

namespace {

constexpr size_t kShownBytes = 16; // of a file

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
		pairs.push_back(pair_json(form, read_row(form, pair, names)));
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

OutputJson pair_json(Form form, const Row &row)
{
	OutputJson entry;
	if (form == Form::kAddress) {
		entry["word"] = row.pair.fn_idx;
		entry["para"] = row.pair.fn_para;
		entry["value"] = row.pair.fn_para & 0xFFFF;
		entry["hex"] = fmt::format("0x{:04X}", row.pair.fn_para & 0xFFFF);
	} else {
		entry["position"] = row.pair.fn_idx;
		entry["value"] = row.pair.fn_para;
		entry["hex"] = fmt::format("0x{:X}", row.pair.fn_para);
		if (form != Form::kHardware)
			entry["signed"] = static_cast<s32>(row.pair.fn_para);
	}
	if (form == Form::kAddress || row.mask) {
		entry["domain"] = row.domain;
		entry["address"] = fmt::format("0x{:07X}", row.address);
		entry["mask"] = fmt::format("0x{:04X}", row.mask);
	}
	if (!row.name.empty())
		entry["name"] = row.name;
	return entry;
}

OutputJson block_json(const Delivered &block, const RegisterNames &names,
		      const Catalogue &catalogue)
{
	return block.kind == Delivered::Kind::kRegisters ? list_json(block, names)
							 : file_json(block, catalogue);
}

} // namespace vexil_tool
