// SPDX-License-Identifier: MIT
//
// Documents through every entry point that inserts, on one map and one rule context, also with
// memory failing in between. What comes out must verify, must be adopted, and must answer loads and
// triggers as the contexts did that were built. (Where memory failed, what was begun may be known
// to the context that was built and stand nowhere in the image: then answers may differ.)
//
// The input is text in sections. A section begins with a line "@", one letter, and the rest of the
// line as its argument; what follows to the next such line is its document or its bytes:
//
//	@h  hardware registers       @s  software and customer registers    @c  customer registers
//	@g  function groups          @l  sources                            @r  rules
//	@f name  a file              @n label  a handler                    @q filter  a question
//	@d name=number  registers, one by one                               @t names  rules to ask
// for
//	@x n  allocation n from here fails                                  @X n  and all later ones
//	@F  the map is finished      @E  the rules are finished             @p  a document, parsed
// only
#include <cstdlib>

#include "core/json.h"
#include "tests/fuzz/use.h"

using namespace vexil_fuzz;

namespace {

constexpr std::size_t kMaxSections = 48;
constexpr std::size_t kMaxQuestions = 8;

struct Section {
	char kind;
	std::string argument;
	std::string body;
};

std::vector<Section> sections_of(const std::string &input)
{
	std::vector<Section> sections;
	for (std::size_t at = 0; at < input.size() && sections.size() < kMaxSections;) {
		const std::size_t end_of_line = std::min(input.find('\n', at), input.size());
		const std::string line = input.substr(at, end_of_line - at);
		std::size_t end = input.find("\n@", at);
		end = end == std::string::npos ? input.size() : end + 1;
		const std::size_t body = std::min(end_of_line + 1, end);
		if (line.size() >= 2 && line[0] == '@')
			sections.push_back({line[1],
					    line.substr(std::min<std::size_t>(line.size(), 3)),
					    input.substr(body, end - body)});
		at = end;
	}
	return sections;
}

/** A text in a block of exactly its bytes and the NUL. */
class ExactText {
public:
	explicit ExactText(const std::string &text) : block_(text.size() + 1)
	{
		std::memcpy(block_.data(), text.c_str(), text.size() + 1);
	}
	[[nodiscard]] const char *get() const { return block_.data(); }

private:
	Block block_;
};

/** A document; null when the text is none. */
class Document {
public:
	explicit Document(const std::string &text)
	    : document_(static_cast<cJSON *>(vexil_json_parse(ExactText(text).get())))
	{
	}
	~Document() { vexil_json_delete(document_); }
	Document(const Document &) = delete;
	Document &operator=(const Document &) = delete;
	[[nodiscard]] cJSON *get() const { return document_; }

private:
	cJSON *document_;
};

/** What was built, and what is to be expected of it. */
struct Build {
	Map map;
	Rules rules;
	Questions questions;
	bool rules_inserted = false;
	bool rules_finished = false;
	bool sources_late = false; // declared behind rules, whose keys are too short then
	bool starved = false;
};

/** One document into the entry point of its section. */
void insert_document(Build &build, const Section &section)
{
	const Document document(section.body);
	cJSON *const root = document.get();
	pim *const map = build.map.get();
	rm *const rules = build.rules.get();
	switch (section.kind) {
	case 'h':
		pim_insert_regmap_json(map, root);
		return;
	case 's':
		pim_insert_vregmap_json(map, root);
		return;
	case 'c':
		pim_insert_cus_vregmap_json(map, root);
		return;
	case 'g':
		pim_insert(map, root);
		return;
	case 'l':
		build.sources_late |= build.rules_inserted && root;
		rm_insert_source_json(rules, root);
		return;
	case 'r':
		build.rules_inserted |= root != nullptr;
		rm_insert(rules, root, map);
		return;
	default:
		return;
	}
}

void insert_one_by_one(pim *map, const std::string &argument)
{
	const std::size_t equals = argument.find('=');
	const ExactText name(argument.substr(0, equals));
	const auto number =
		static_cast<u32>(equals == std::string::npos
					 ? 0
					 : std::strtoul(argument.c_str() + equals + 1, nullptr, 0));
	pim_insert_regmap(map, name.get(), number);
	pim_insert_vregmap(map, name.get(), number);
	pim_insert_cus_vregmap(map, name.get(), number);
}

void perform(Build &build, const Section &section)
{
	pim *const map = build.map.get();
	const ExactText argument(section.argument);
	switch (section.kind) {
	case 'f':
		pim_insert_file(map, argument.get(), section.body.data(),
				static_cast<u32>(section.body.size()));
		return;
	case 'n':
		pim_insert_handler(map, argument.get(), take_block);
		return;
	case 'd':
		insert_one_by_one(map, section.argument);
		return;
	case 'q':
	case 't': {
		auto &asked = section.kind == 'q' ? build.questions.filters : build.questions.rules;
		if (asked.size() < kMaxQuestions)
			asked.push_back(section.argument);
		return;
	}
	case 'x':
	case 'X':
		build.starved |= refused();
		refuse(std::strtoul(section.argument.c_str(), nullptr, 10) % 4096,
		       section.kind == 'X');
		return;
	case 'F':
		pim_finish(map);
		return;
	case 'E':
		build.rules_finished = true;
		rm_finish(build.rules.get());
		return;
	default:
		insert_document(build, section);
	}
}

void check_map(const Build &build)
{
	pim *const map = build.map.get();
	const std::vector<std::uint8_t> bytes = exported(map);
	const Block image(bytes);
	require_verdict(VEXIL_IMAGE_SOUND, image, "a map that was built and does not verify");
	Map adopted, addressed;
	require(pim_init(adopted.out(), image.data(), image.size(), nullptr, 0),
		"a map that was built and is not adopted");
	take_log();
	const std::uint64_t answers = use_map(map, true);
	dump(map, true);
	require(use_map(adopted.get(), true) == answers || build.starved,
		"an adopted map that answers otherwise");
	require_verdict(VEXIL_IMAGE_SOUND, image, "adoption left something else");

	const Block second(bytes);
	const auto &table = register_table();
	require(pim_init(addressed.out(), second.data(), second.size(), table.data(), table.size()),
		"a map that was built and is not adopted with a table");
	use_map(addressed.get(), true, Thoroughness::kLittle);
	require_verdict(VEXIL_IMAGE_SOUND, second, "address form left something else");

	Map merged;
	require(merged.init() && pim_merge(merged.get(), map, addressed.get()),
		"maps that were built and do not merge");
	require_verdict(VEXIL_IMAGE_SOUND, Block(exported(merged.get())),
			"a merge that does not verify");
}

void check_rules(const Build &build)
{
	rm *const rules = build.rules.get();
	const Block image(exported(rules));
	const vexil_image_code code = verdict(image);
	const bool grown = code == VEXIL_IMAGE_KEY_SIZE && build.sources_late;
	if (!is_usable(code) && !grown)
		require_verdict(VEXIL_IMAGE_SOUND, image,
				"rules that were built and do not verify");
	Rules adopted;
	require(rm_init(adopted.out(), image.data(), image.size()),
		"rules that were built and are not adopted");
	take_log();
	const std::uint64_t answers = use_rules(rules, !grown, build.questions);
	dump(rules, true);
	Rules merged;
	require(merged.init() && rm_merge(merged.get(), rules, adopted.get(), build.map.get()),
		"rules that were built and do not merge");
	if (!grown)
		require_verdict(code, Block(exported(merged.get())),
				"a merge that does not verify");
	use_rules(merged.get(), false, {}, Thoroughness::kLittle);
	require(use_rules(adopted.get(), !grown, build.questions) == answers || build.starved ||
			Patience::lost(),
		"adopted rules that answer otherwise");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
	const Blocks blocks;
	Patience::renew();
	const std::string input(reinterpret_cast<const char *>(data), size);
	Build build;
	require(build.map.init() && build.rules.init(), "no contexts");
	pim_insert_alg_handler(build.map.get(), take_algorithm);
	for (const Section &section : sections_of(input))
		perform(build, section);
	build.starved |= refused();
	refuse(0, false);
	take_log();
	if (!build.rules_finished && build.starved) {
		const Block unfinished(exported(build.rules.get()));
		const vexil_image_code code = verdict(unfinished);
		require(is_usable(code) || (code == VEXIL_IMAGE_KEY_SIZE && build.sources_late),
			"unfinished rules that do not verify");
	}
	const bool complete = rm_finish(build.rules.get());
	const auto *const rules = build.rules.get();
	require(complete == (rules->unres_rule.count == 0 && rules->unres_source.count == 0),
		"an end that says something else than there is");
	check_map(build);
	check_rules(build);
	return 0;
}
