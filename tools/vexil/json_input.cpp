// SPDX-License-Identifier: MIT

#include "json_input.h"

#include <algorithm>
#include <vector>

#include <fmt/format.h>

#include "errors.h"
#include "files.h"
#include "text.h"

namespace vexil_tool {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr size_t kDeepest = 48; // levels that the parser follows
constexpr size_t kLongestNumber = 63;

bool is_blank(char c)
{
	return static_cast<unsigned char>(c) <= ' ';
}

bool is_digit(char c)
{
	return c >= '0' && c <= '9';
}

bool begins_number(char c)
{
	return is_digit(c) || c == '-' || c == '+';
}

bool belongs_to_number(char c)
{
	const char letter = static_cast<char>(c | 0x20);
	return begins_number(c) || (letter >= 'a' && letter <= 'f') || letter == 'x';
}

/** The first byte of @text that a byte order mark does not use. */
size_t skip_mark(std::string_view text)
{
	return text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
}

size_t skip_blanks(std::string_view text, size_t at)
{
	while (at < text.size() && is_blank(text[at]))
		++at;
	return at;
}

/** What has been read of a text up to some byte, all of it well-formed. */
class Context {
public:
	Context(std::string_view text, size_t end)
	{
		for (size_t at = skip_mark(text); at < end; ++at)
			step(text[at], at);
	}

	[[nodiscard]] bool in_string() const { return in_string_; }
	[[nodiscard]] size_t string_begin() const { return string_begin_; }
	[[nodiscard]] size_t depth() const { return open_.size(); }
	[[nodiscard]] bool in_object() const { return !open_.empty() && open_.back() == '{'; }
	/** The last character that is no blank; a string counts as its closing quote. */
	[[nodiscard]] char last() const { return last_; }
	/** A member's name comes next. */
	[[nodiscard]] bool wants_name() const
	{
		return in_object() && (last_ == '{' || last_ == ',');
	}
	/** A member's name was the last thing read. */
	[[nodiscard]] bool after_name() const { return last_ == '"' && string_is_name_; }
	/** A value comes next. */
	[[nodiscard]] bool wants_value() const
	{
		return last_ == '\0' || last_ == ':' || last_ == '[' ||
		       (last_ == ',' && !in_object());
	}

private:
	void step(char c, size_t at)
	{
		if (in_string_) {
			if (escaped_)
				escaped_ = false;
			else if (c == '\\')
				escaped_ = true;
			else if (c == '"')
				in_string_ = false;
			return;
		}
		if (is_blank(c))
			return;
		if (c == '"') {
			in_string_ = true;
			string_begin_ = at;
			string_is_name_ = wants_name();
		} else if (c == '{' || c == '[') {
			open_.push_back(c);
		} else if ((c == '}' || c == ']') && !open_.empty()) {
			open_.pop_back();
		}
		last_ = c;
	}

	std::string open_;
	char last_ = '\0';
	bool in_string_ = false;
	bool escaped_ = false;
	bool string_is_name_ = false;
	size_t string_begin_ = 0;
};

/** The character at a byte, for a message. */
std::string shown(std::string_view text, size_t at)
{
	size_t end = at + 1;
	while (end < text.size() && (text[end] & 0xC0) == 0x80)
		++end;
	return printable(text.substr(at, end - at));
}

std::string number_fault(std::string_view text, size_t at)
{
	size_t end = at;
	while (end < text.size() && end - at < kLongestNumber && belongs_to_number(text[end]))
		++end;
	const std::string_view token = text.substr(at, end - at);
	const std::string_view unsigned_part =
		token.substr(token[0] == '-' || token[0] == '+' ? 1 : 0);
	const bool hexadecimal = unsigned_part.starts_with("0x") || unsigned_part.starts_with("0X");
	const std::string_view digits = unsigned_part.substr(hexadecimal ? 2 : 0);
	const bool octal = !hexadecimal && digits.size() > 1 && digits[0] == '0';

	std::string cause = "is not a number";
	if (digits.empty())
		cause = "is not a number: digits are missing";
	else if (digits.find_first_of("+-xX") != std::string_view::npos)
		cause = "is not a number";
	else if (end - at == kLongestNumber)
		cause = "is longer than 63 characters";
	else if (!hexadecimal && digits.find_first_of("eE") != std::string_view::npos)
		cause = "has an exponent; numbers are integers";
	else if (!hexadecimal && !std::all_of(digits.begin(), digits.end(), is_digit))
		cause = "is not a number; hexadecimal ones begin with 0x";
	else if (octal && digits.find_first_of("89") != std::string_view::npos)
		cause = "is not a number: a leading 0 makes it octal";
	else
		cause = "is too large: numbers have 64 bits and a sign";
	return fmt::format("'{}' {}", token, cause);
}

/** @at stands inside a string, behind its quote or at a backslash. */
Fault string_fault(std::string_view text, size_t begin, size_t at)
{
	bool escaped = false;
	size_t end = begin + 1;
	for (; end < text.size(); ++end) {
		if (escaped)
			escaped = false;
		else if (text[end] == '\\')
			escaped = true;
		else if (text[end] == '"')
			break;
	}
	if (end >= text.size())
		return {begin, "the text that begins here is not closed by a quote"};
	if (at >= text.size() || text[at] != '\\')
		return {begin, "out of memory"};
	if (text[at + 1] != 'u')
		return {at, fmt::format("'\\{}' is no escape of JSON", shown(text, at + 1))};
	return {at, "this \\u escape is no character"};
}

} // namespace

Fault explain_fault(std::string_view text, size_t stopped)
{
	stopped = std::clamp(stopped, skip_mark(text), text.size());
	if (stopped > 0) {
		// A name that is missing leaves the parser behind what stands in its place.
		const size_t before = stopped - 1;
		const Context there(text, before);
		const char c = text[before];
		const bool closes_empty = c == '}' && there.last() == '{';
		if (!there.in_string() && there.wants_name() && c != '"' && !is_blank(c) &&
		    !closes_empty)
			return {before,
				c == '}'
					? "a comma stands before this '}'"
					: fmt::format(
						  "a member's name in quotes is expected, not '{}'",
						  shown(text, before))};
	}
	const Context here(text, stopped);
	if (here.in_string())
		return string_fault(text, here.string_begin(), stopped);
	if (stopped == text.size()) {
		if (here.depth() == 0)
			return {stopped, "there is no JSON in it"};
		return {stopped, here.in_object() ? "the text ends inside an object"
						  : "the text ends inside an array"};
	}
	const char c = text[stopped];
	if (here.wants_value()) {
		if ((c == '{' || c == '[') && here.depth() >= kDeepest)
			return {stopped, fmt::format("nested deeper than {}", kDeepest)};
		if (begins_number(c))
			return {stopped, number_fault(text, stopped)};
		if (c == ']' && here.last() == ',')
			return {stopped, "a comma stands before this ']'"};
		return {stopped,
			fmt::format("a value is expected, not '{}'", shown(text, stopped))};
	}
	if (here.after_name())
		return {stopped, fmt::format("':' is expected behind a name, not '{}'",
					     shown(text, stopped))};
	const bool after_number = stopped > 0 && belongs_to_number(text[stopped - 1]);
	if (after_number && c == '.')
		return {stopped, "the number has a fraction; numbers are integers"};
	if (after_number && belongs_to_number(c))
		return {stopped, "the number is longer than 63 characters"};
	return {stopped, fmt::format("',' or '{}' is expected, not '{}'",
				     here.in_object() ? '}' : ']', shown(text, stopped))};
}

Place place_of(std::string_view text, size_t offset)
{
	const std::string_view before = text.substr(0, offset);
	size_t begin = before.rfind('\n');
	begin = begin == std::string_view::npos ? 0 : begin + 1;
	std::string_view line = before.substr(begin);
	if (begin == 0 && line.starts_with(kByteOrderMark))
		line.remove_prefix(kByteOrderMark.size());
	const auto starts_character = [](char c) { return (c & 0xC0) != 0x80; };
	return {1 + static_cast<size_t>(std::count(before.begin(), before.end(), '\n')),
		1 + static_cast<size_t>(std::count_if(line.begin(), line.end(), starts_character))};
}

Json read_json(const std::string &path, Root root, Console &console)
{
	std::vector<char> bytes = read_file(path);
	bytes.push_back('\0');
	const std::string_view text(bytes.data(), bytes.size() - 1);
	const auto where = [&](size_t offset) {
		const Place place = place_of(text, offset);
		return fmt::format("{}:{}:{}", path, place.line, place.column);
	};
	if (text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF"))
		refuse(path, "is UTF-16 text; JSON must be UTF-8");
	if (const size_t nul = text.find('\0'); nul != std::string_view::npos)
		refuse(where(nul), "there is a NUL byte in the text");

	const char *end = nullptr;
	Json document(cJSON_ParseWithLengthOpts(bytes.data(), bytes.size(), &end, false));
	const auto stopped = end ? static_cast<size_t>(end - bytes.data()) : 0;
	if (!document) {
		const Fault fault = explain_fault(text, stopped);
		refuse(where(fault.offset), fault.cause);
	}
	const bool fits = root == Root::kObject ? vexil::is_object(document.get())
						: vexil::is_array(document.get());
	if (!fits)
		refuse(where(skip_blanks(text, skip_mark(text))),
		       root == Root::kObject ? "the document is not an object"
					     : "the document is not an array");
	if (const size_t rest = skip_blanks(text, stopped); rest < text.size())
		console.warn(where(rest), "text after the document is not read");
	return document;
}

} // namespace vexil_tool
