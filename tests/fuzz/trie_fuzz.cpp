// SPDX-License-Identifier: MIT
//
// A trie holds what a plain map of lower-cased names would hold: after any insertions, refused ones
// and those without memory among them, each name has its value, and no other text has one.
//
// Input: lines. The first character says what to do with the rest, which is a name unless said
// otherwise.
//   +  insert, with a value of its own      ~  insert, with a negative one
//   =  insert without a value               e  insert where only memory matters
//   ?  look up                              p  print (no name)
//   x  take the value away
//   d  destroy and begin anew (no name)
//   !  refuse the nth allocation from here on, the number following; with ! before it all later
//   ones
#include <climits>
#include <cstdlib>
#include <map>

#include "core/ctrie.h"
#include "tests/fuzz/fuzz.h"

namespace {

using vexil_fuzz::require;

constexpr std::size_t kLongestInput = 4096;
constexpr std::size_t kLogKept = 65536;
constexpr std::size_t kPartsCompared = 24;
constexpr int kNoValue = INT_MIN;

bool known_character(unsigned char c)
{
	static const std::string others = " #./:\\_";
	return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
	       (c != 0 && others.find(static_cast<char>(c)) != std::string::npos);
}

std::string lower(std::string name)
{
	for (char &c : name) {
		if (c >= 'A' && c <= 'Z')
			c = static_cast<char>(c - 'A' + 'a');
	}
	return name;
}

class Run {
public:
	Run() { begin(); }
	~Run() { ctrie_destroy(&trie_); }
	Run(const Run &) = delete;
	Run &operator=(const Run &) = delete;

	void line(const std::string &text)
	{
		const char action = text.empty() ? '?' : text[0];
		const std::string rest = text.empty() ? "" : text.substr(1);
		++lines_;
		switch (action) {
		case '+':
			return insert(rest, lines_);
		case '~':
			return insert(rest, -1 - lines_); // -1 is how dumps show that there is none
		case '=':
			return insert(rest, kNoValue);
		case 'e':
			return enter(rest);
		case 'x':
			vexil::forget_name(&trie_, rest.c_str());
			names_.erase(lower(rest));
			return look(rest);
		case 'p':
			return print();
		case 'd':
			return start_anew();
		case '!':
			return refuse(rest);
		default:
			return look(rest);
		}
	}
	/** Every name, and that nothing else is there. */
	void sweep()
	{
		for (const auto &[name, value] : names_) {
			require(ctrie_find(&trie_, name.c_str()) == value, "a name lost its value");
		}
		vexil_fuzz::refuse(0, false);
		print();
	}

private:
	void begin()
	{
		if (!ctrie_init(&trie_)) {
			require(vexil_fuzz::refused(), "no trie, with memory");
			require(trie_.err_code == CTRIE_NOMEM && !trie_.root && !trie_.buf,
				"what a failed beginning leaves");
			destroyed();
			vexil_fuzz::refuse(0, false);
			require(ctrie_init(&trie_), "no trie");
		}
		names_.clear();
		code_ = CTRIE_SUCCESS;
	}
	void start_anew()
	{
		ctrie_destroy(&trie_);
		destroyed();
		begin();
	}
	void destroyed()
	{
		require(!ctrie_insert(&trie_, "name", 1) && trie_.err_code == CTRIE_INTERNAL_ERROR,
			"an insertion into no trie");
		require(ctrie_find(&trie_, "name") == kNoValue, "a name in no trie");
		ctrie_print(&trie_);
		ctrie_destroy(&trie_);
		require(trie_.err_code == CTRIE_INTERNAL_ERROR, "the code of no trie");
	}
	void refuse(const std::string &rest)
	{
		const bool all = !rest.empty() && rest[0] == '!';
		vexil_fuzz::refuse(std::strtoul(rest.c_str() + all, nullptr, 10) % 64, all);
	}

	[[nodiscard]] int expected(const std::string &name) const
	{
		const auto found = names_.find(lower(name));
		return found == names_.end() ? kNoValue : found->second;
	}
	/** Inserts into the model; the code that the trie must record. */
	ctrie_err_code model_insert(const std::string &name, int value)
	{
		for (const char c : name) {
			if (!known_character(static_cast<unsigned char>(c))) {
				log_ = "[ctrie_insert][176]insert wrong string member = " +
				       std::to_string(static_cast<unsigned char>(c)) + "\n";
				return CTRIE_INVALID_CHAR;
			}
		}
		if (name.empty())
			return CTRIE_OUT_OF_RANGE;
		if (expected(name) != kNoValue)
			return CTRIE_DUPLICATED_STRING;
		if (value != kNoValue)
			names_[lower(name)] = value;
		return CTRIE_SUCCESS;
	}
	void insert(const std::string &name, int value)
	{
		vexil_fuzz::take_log();
		const bool done = ctrie_insert(&trie_, name.c_str(), value);
		if (vexil_fuzz::refused()) {
			require(!done && trie_.err_code == CTRIE_NOMEM, "inserted without memory");
			code_ = CTRIE_NOMEM;
			vexil_fuzz::refuse(0, false);
		} else {
			log_.clear();
			const ctrie_err_code code = model_insert(name, value);
			require(done == (code == CTRIE_SUCCESS), "inserted, or not");
			if (!done)
				code_ = code;
			require(vexil_fuzz::take_log() == log_, "the line about a wrong character");
		}
		require(trie_.err_code == code_, "the code");
		look(name);
	}
	void enter(const std::string &name)
	{
		const bool done = vexil::enter_name(&trie_, name.c_str(), lines_);
		if (vexil_fuzz::refused()) {
			require(!done, "entered without memory");
			code_ = CTRIE_NOMEM;
			vexil_fuzz::refuse(0, false);
		} else {
			require(done, "no memory for a name, with memory");
			const ctrie_err_code code = model_insert(name, lines_);
			if (code != CTRIE_SUCCESS)
				code_ = code;
		}
		require(trie_.err_code == code_, "the code");
		look(name);
	}
	/** The name itself, and texts like it, by both ways of looking up. */
	void look(const std::string &name)
	{
		vexil::TrieCursor cursor(trie_);
		require(cursor.value() == kNoValue, "the empty name has a value");
		std::string part;
		for (const char c : name) {
			cursor.feed(c);
			part += c;
			if (part.size() <= kPartsCompared)
				require(cursor.value() == expected(part),
					"the value of a beginning");
		}
		require(cursor.value() == expected(name), "the value of a name, fed by characters");
		require(ctrie_find(&trie_, name.c_str()) == expected(name), "the value of a name");
		for (const char *more : {"a", "#", "~"}) {
			const std::string longer = name + more;
			require(ctrie_find(&trie_, longer.c_str()) == expected(longer),
				"the value of a longer name");
		}
	}

	/** A dump says every name and value, once. */
	void print()
	{
		vexil_fuzz::take_log();
		ctrie_print(&trie_);
		const bool refused = vexil_fuzz::refused();
		vexil_fuzz::refuse(0, false);
		const std::string dump = vexil_fuzz::take_log();
		if (refused || dump.size() >= kLogKept)
			return;
		std::map<std::string, int> said;
		std::vector<std::string> path;
		for (std::size_t at = 0; at < dump.size();) {
			std::size_t depth = 0;
			for (; dump.compare(at, 3, "---") == 0; at += 3)
				++depth;
			const std::size_t open = dump.find('[', at);
			const std::size_t end = dump.find('\n', at);
			require(open != std::string::npos && end != std::string::npos &&
					open < end && dump[end - 1] == ']' && depth <= path.size(),
				"a line of a dump");
			require(depth == 0 || open > at, "a label without a character");
			path.resize(depth);
			path.push_back((depth ? path.back() : "") + dump.substr(at, open - at));
			const int value = std::atoi(dump.c_str() + open + 1);
			if (value != -1)
				require(said.emplace(path.back(), value).second,
					"a name shown twice");
			at = end + 1;
		}
		require(said == names_, "the names of a dump");
	}

	ctrie trie_;
	ctrie_err_code code_ = CTRIE_SUCCESS;
	std::map<std::string, int> names_;
	std::string log_;
	int lines_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
	const vexil_fuzz::Blocks blocks;
	std::string script(reinterpret_cast<const char *>(data),
			   size < kLongestInput ? size : kLongestInput);
	Run run;
	for (std::size_t at = 0; at < script.size();) {
		std::size_t end = script.find('\n', at);
		if (end == std::string::npos)
			end = script.size();
		run.line(script.substr(at, end - at).c_str()); // up to a NUL
		at = end + 1;
	}
	run.sweep();
	return 0;
}
