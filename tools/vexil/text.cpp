// SPDX-License-Identifier: MIT

#include "text.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "core/ctrie.h"
#include "core/number.h"
#include "errors.h"

namespace vexil_tool {

namespace {

struct CodePoint {
	char32_t value;
	size_t bytes;
};

/** The code point at the start of @text; none for bytes that are not shortest-form UTF-8. */
std::optional<CodePoint> decode(std::string_view text)
{
	const auto lead = static_cast<unsigned char>(text[0]);
	if (lead < 0x80)
		return CodePoint{lead, 1};
	const size_t bytes = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
	if (lead < 0xC2 || lead > 0xF4 || text.size() < bytes)
		return std::nullopt;
	char32_t value = lead & (0xFFu >> (bytes + 1));
	for (size_t i = 1; i < bytes; ++i) {
		const auto next = static_cast<unsigned char>(text[i]);
		if ((next & 0xC0) != 0x80)
			return std::nullopt;
		value = (value << 6) | (next & 0x3Fu);
	}
	constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
	if (value < kSmallest[bytes] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
		return std::nullopt;
	return CodePoint{value, bytes};
}

/** Code points above ASCII that act on the text around them. */
bool acts_on_text(char32_t value)
{
	return (value >= 0x80 && value < 0xA0) || (value >= 0x200B && value <= 0x200F) ||
	       (value >= 0x2028 && value <= 0x202E) || (value >= 0x2060 && value <= 0x206F) ||
	       value == 0x061C || value == 0xFEFF || (value >= 0xFFF9 && value <= 0xFFFB) ||
	       value >= 0xE0000;
}

std::string escaped_byte(unsigned char byte)
{
	switch (byte) {
	case '\n':
		return "\\n";
	case '\r':
		return "\\r";
	case '\t':
		return "\\t";
	default:
		return fmt::format("\\x{:02x}", byte);
	}
}

/** Edit distance, or @limit + 1 when it is larger. */
size_t distance(std::string_view a, std::string_view b, size_t limit)
{
	if ((a.size() > b.size() ? a.size() - b.size() : b.size() - a.size()) > limit)
		return limit + 1;
	std::vector<size_t> row(b.size() + 1);
	for (size_t j = 0; j <= b.size(); ++j)
		row[j] = j;
	for (size_t i = 1; i <= a.size(); ++i) {
		size_t diagonal = std::exchange(row[0], i);
		size_t least = row[0];
		for (size_t j = 1; j <= b.size(); ++j) {
			const size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
			diagonal = row[j];
			row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
			least = std::min(least, row[j]);
		}
		if (least > limit)
			return limit + 1;
	}
	return row[b.size()];
}

} // namespace

std::string printable(std::string_view text)
{
	std::string result;
	result.reserve(text.size());
	while (!text.empty()) {
		const auto byte = static_cast<unsigned char>(text[0]);
		const std::optional<CodePoint> code = decode(text);
		if (!code || byte < 0x20 || byte == 0x7F) {
			result += escaped_byte(byte);
			text.remove_prefix(1);
			continue;
		}
		if (acts_on_text(code->value))
			result += fmt::format("\\u{{{:04X}}}", static_cast<u32>(code->value));
		else
			result += text.substr(0, code->bytes);
		text.remove_prefix(code->bytes);
	}
	return result;
}

std::string grouped(u64 number)
{
	std::string digits = std::to_string(number);
	for (size_t at = digits.size(); at > 3;) {
		at -= 3;
		digits.insert(at, 1, ',');
	}
	return digits;
}

std::string counted(u64 number, std::string_view one, std::string_view many)
{
	if (number == 1)
		return fmt::format("1 {}", one);
	return many.empty() ? fmt::format("{} {}s", grouped(number), one)
			    : fmt::format("{} {}", grouped(number), many);
}

std::string joined(const std::vector<std::string> &texts)
{
	return fmt::format("{}", fmt::join(texts, ", "));
}

std::string lowered(std::string_view text)
{
	std::string result(text);
	for (char &c : result)
		c = static_cast<char>(vexil::lower(c));
	return result;
}

std::string foreign_character(std::string_view name)
{
	for (size_t i = 0; i < name.size(); ++i) {
		const unsigned char c = vexil::lower(name[i]);
		if (c >= 0x80 || ctrie_char_remap[c] == CT_CH_NV) {
			const std::optional<CodePoint> code = decode(name.substr(i));
			return printable(name.substr(i, code ? code->bytes : 1));
		}
	}
	return {};
}

namespace {

std::string quoted_hint(const std::vector<std::string> &names)
{
	std::string hint;
	for (const std::string &name : names)
		hint += fmt::format("{}'{}'", hint.empty() ? "; similar: " : ", ",
				    printable(shortened(name)));
	return hint;
}

} // namespace

std::vector<std::string> similar_names(std::string_view wanted,
				       const std::vector<std::string> &known, size_t most)
{
	constexpr size_t kLongest = 64; // characters that are compared
	const std::string key = lowered(wanted.substr(0, kLongest));
	// Names that have nothing in common are not alike, however short.
	const size_t limit =
		std::min(std::max<size_t>(2, key.size() / 3), key.empty() ? 0 : key.size() - 1);
	struct Found {
		size_t rank;
		const std::string *name;
	};
	std::vector<Found> found;
	for (const std::string &name : known) {
		const std::string other = lowered(std::string_view(name).substr(0, kLongest));
		const bool begins = !key.empty() && other.compare(0, key.size(), key) == 0;
		const size_t rank = begins ? 0 : distance(key, other, limit);
		if (rank <= limit)
			found.push_back({rank, &name});
	}
	std::stable_sort(found.begin(), found.end(),
			 [](const Found &a, const Found &b) { return a.rank < b.rank; });
	std::vector<std::string> names;
	for (const Found &candidate : found) {
		if (names.size() == most)
			break;
		if (std::find(names.begin(), names.end(), *candidate.name) == names.end())
			names.push_back(*candidate.name);
	}
	return names;
}

std::string similar_hint(std::string_view wanted, const std::vector<std::string> &known)
{
	return quoted_hint(similar_names(wanted, known));
}

std::string label_hint(std::string_view label, const std::vector<std::string> &known)
{
	constexpr size_t kMostValues = 8;
	const size_t colon = label.find(':');
	const std::string source = lowered(label.substr(0, colon)) + ":";
	std::string begin; // the source as it is declared
	std::vector<std::string> values;
	for (const std::string &other : known) {
		if (!lowered(other).starts_with(source))
			continue;
		begin = other.substr(0, source.size());
		values.push_back(other.substr(source.size()));
	}
	if (values.empty() || colon == std::string_view::npos)
		return similar_hint(label, known);
	std::vector<std::string> similar = similar_names(label.substr(colon + 1), values);
	for (std::string &value : similar)
		value.insert(0, begin);
	if (!similar.empty())
		return quoted_hint(similar);
	const bool more = values.size() > kMostValues;
	values.resize(std::min(values.size(), kMostValues));
	begin.pop_back();
	return fmt::format("; values of {}: {}{}", printable(begin), printable(joined(values)),
			   more ? ", ..." : "");
}

u32 crc32(const char *data, size_t size)
{
	static constexpr auto kTable = [] {
		std::array<u32, 256> table{};
		for (u32 i = 0; i < table.size(); ++i) {
			u32 value = i;
			for (int bit = 0; bit < 8; ++bit)
				value = (value >> 1) ^ (value & 1 ? 0xEDB88320u : 0);
			table[i] = value;
		}
		return table;
	}();
	u32 value = 0xFFFFFFFFu;
	for (size_t i = 0; i < size; ++i)
		value = (value >> 8) ^ kTable[(value ^ static_cast<unsigned char>(data[i])) & 0xFF];
	return ~value;
}

} // namespace vexil_tool
