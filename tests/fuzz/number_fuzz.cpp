// SPDX-License-Identifier: MIT
//
// Texts become numbers by one set of rules wherever they stand: alone, in a document, as a bound of
// an interval, as a part of a version. The rules are told here a second time, over the C library's
// conversion, which is fed nothing but digits.
//
// Input: a text, up to its first NUL.
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "core/json.h"
#include "core/version.h"
#include "platform/platform.h"
#include "rm/rm.h"
#include "tests/fuzz/fuzz.h"

namespace {

using vexil_fuzz::require;

constexpr std::size_t kLongestInput = 512;
constexpr std::size_t kPartCharacters = 127; // of a bound or a version's part that are still read
constexpr std::size_t kTokenCharacters = 63; // of a document's number
constexpr unsigned long long kUntouched = 0xA5A5A5A5A5A5A5A5;

struct DeleteJson {
	void operator()(cJSON *document) const { vexil_json_delete(document); }
};
using Document = std::unique_ptr<cJSON, DeleteJson>;

std::string digits(unsigned base)
{
	const std::string lower = std::string("0123456789abcdef").substr(0, base);
	return lower + (base > 10 ? std::string("ABCDEF").substr(0, base - 10) : "");
}

struct Number {
	int error = 0;
	unsigned long long value = 0;
};

/** Digits, up to the end or one newline, after a prefix that base 0 and base 16 know. */
Number plain(std::string text, unsigned base)
{
	const bool x = text.size() > 1 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
	if (base == 0) {
		const bool hexadecimal =
			x && text.size() > 2 && digits(16).find(text[2]) != std::string::npos;
		base = hexadecimal ? 16 : text.size() > 0 && text[0] == '0' ? 8 : 10;
	}
	if (base == 16 && x)
		text.erase(0, 2);
	std::size_t end = text.find_first_not_of(digits(base));
	if (end == std::string::npos)
		end = text.size();
	errno = 0;
	Number number;
	number.value = std::strtoull(text.substr(0, end).c_str(), nullptr, static_cast<int>(base));
	const std::string rest = text.substr(end);
	if (errno == ERANGE)
		number.error = -ERANGE;
	else if (end == 0 || (!rest.empty() && rest != "\n"))
		number.error = -EINVAL;
	return number;
}

Number unsigned_number(const std::string &text, unsigned base)
{
	return plain(text.substr(!text.empty() && text[0] == '+'), base);
}

Number signed_number(const std::string &text, unsigned base)
{
	const bool negative = !text.empty() && text[0] == '-';
	Number number = negative ? plain(text.substr(1), base) : unsigned_number(text, base);
	const unsigned long long most = LLONG_MAX;
	if (!number.error && number.value > most + (negative ? 1 : 0))
		number.error = -ERANGE;
	if (negative)
		number.value = 0 - number.value;
	return number;
}

/** The number, 0 for a text that is none, or too long. */
unsigned long long or_zero(const std::string &text, unsigned base)
{
	const Number number = unsigned_number(text, base);
	return number.error || text.size() > kPartCharacters ? 0 : number.value;
}

void alone(const std::string &text)
{
	for (unsigned base = 0; base <= 16; base += base == 0 ? 2 : 1) {
		unsigned long long natural = kUntouched;
		const Number number = unsigned_number(text, base);
		require(kstrtoull(text.c_str(), base, &natural) == number.error,
			"an unsigned number, or none");
		require(natural == (number.error ? kUntouched : number.value),
			"an unsigned number");

		long long whole = static_cast<long long>(kUntouched);
		const Number with_sign = signed_number(text, base);
		require(kstrtoll(text.c_str(), base, &whole) == with_sign.error,
			"a signed number, or none");
		require(static_cast<unsigned long long>(whole) ==
				(with_sign.error ? kUntouched : with_sign.value),
			"a signed number");

		u64 or_nothing = kUntouched;
		vexil_strtoull(text.c_str(), &or_nothing, static_cast<int>(base));
		require(or_nothing == (number.error ? 0 : number.value), "a number, or 0");
	}
}

int clamped(long long value)
{
	return static_cast<int>(value > INT_MAX ? INT_MAX : value < INT_MIN ? INT_MIN : value);
}

void in_document(const std::string &text)
{
	// As a number: at the root, where what follows it does not matter.
	if (!text.empty() && std::string("+-0123456789").find(text[0]) != std::string::npos) {
		std::size_t end = text.find_first_not_of("0123456789abcdefABCDEFxX+-");
		end = std::min(end == std::string::npos ? text.size() : end, kTokenCharacters);
		const Number number = signed_number(text.substr(0, end), 0);
		const Document document(static_cast<cJSON *>(vexil_json_parse(text.c_str())));
		require((document != nullptr) == (number.error == 0),
			"a document's number, or none");
		if (document) {
			const auto value = static_cast<long long>(number.value);
			require(vexil::is_number(document.get()) && document->valuelong == value &&
					document->valueint == clamped(value),
				"a document's number");
		}
	}
	// As a text: a number when it says so.
	if (text.find_first_of("\"\\") == std::string::npos) {
		const Document document(
			static_cast<cJSON *>(vexil_json_parse(("\"" + text + "\"").c_str())));
		require(document != nullptr, "a document's text");
		const Number number = signed_number(text, 16);
		if (text.compare(0, 2, "0x") == 0 && number.error == 0) {
			require(vexil::is_number(document.get()) &&
					document->valuelong == static_cast<long long>(number.value),
				"a document's number in a text");
		} else {
			require(vexil::is_string(document.get()) && text == document->valuestring &&
					document->valuelong == 0,
				"a document's text as it is");
		}
	}
}

void as_interval(const std::string &text)
{
	std::string bound;
	bool open = false;
	u64 least = 0, most = 0;
	for (const char c : text) {
		if (c == '[' || c == '(')
			open = c == '(';
		else if (c != ' ' && c != ',' && c != ']' && c != ')')
			bound += c;
		if (c != ',' && c != ']' && c != ')')
			continue;
		const u64 number = or_zero(bound, 0);
		bound.clear();
		if (c == ',')
			least = open ? number + 1 : number;
		else
			most = c == ')' && number > 0 ? number - 1 : number;
	}
	range_desc range;
	std::memset(&range, 0xA5, sizeof range);
	__rm_get_range(text.c_str(), &range);
	require(range.minData == least && range.maxData == most, "an interval");
	require(range.source_node == 0xA5A5, "an interval's source");
}

void as_version(const std::string &text)
{
	if (text.find_first_of("\"\\") != std::string::npos)
		return;
	const std::string json = R"({"JsonVersionFormat": ")" + text + R"(", "Revision": ")" +
				 text + R"(", "Note": ")" + text + "\"}";
	const Document document(static_cast<cJSON *>(vexil_json_parse(json.c_str())));
	require(document != nullptr, "a version");
	vexil_version expected{7, 8, 9};
	std::string note = "noted before";
	if (vexil::is_string(document->child)) { // not a number in a text
		std::string part;
		expected = {0, 0, 0};
		const auto take = [&](u16 before) {
			const bool none = part.empty();
			const auto number = static_cast<u16>(or_zero(part, 16));
			part.clear();
			return none ? before : number;
		};
		for (const char c : text) {
			if (c == '.')
				expected.u16MajorNumber = take(expected.u16MajorNumber);
			else if (c != ' ')
				part += c;
		}
		expected.u16MinorNumber = take(0);
		const Number revision = unsigned_number(text, 16);
		expected.u32Revision = static_cast<u32>(revision.error ? 0 : revision.value);
		note = text.substr(0, 31);
	} else {
		expected.u32Revision = static_cast<u32>(signed_number(text, 16).value);
	}
	vexil_version version{7, 8, 9};
	char said[32] = "noted before";
	__pim_get_version(document.get(), &version, said);
	require(std::memcmp(&version, &expected, sizeof version) == 0, "a version's numbers");
	require(said[31] == 0 && note == said, "a version's note");
	version = {7, 8, 9};
	__rm_get_version(document.get(), &version);
	require(std::memcmp(&version, &expected, sizeof version) == 0, "a rule version's numbers");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
	const vexil_fuzz::Blocks blocks;
	const std::string all(reinterpret_cast<const char *>(data),
			      size < kLongestInput ? size : kLongestInput);
	const std::string text = all.c_str();
	alone(text);
	in_document(text);
	as_interval(text);
	as_version(text);
	return 0;
}
