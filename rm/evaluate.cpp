// SPDX-License-Identifier: MIT

#include "rm/evaluate.h"

#include "core/fail.h"
#include "core/pending.h"
#include "core/scratch.h"
#include "extmem/reader.h"
#include "rm/key.h"
#include "rm/result.h"

namespace {

using vexil::Bytes;
using vexil::kBitsPerWord;
using vexil::kNoNode;
using vexil::kNoValue;
using vexil::Reader;

constexpr size_t kTokenBytes = 128; // of a source filter, NUL included
constexpr size_t kMaxListedRules = 128;
constexpr int kDetectBase = 0;

/** Nodes that one trigger may visit: rules that lead to each other twice over grow as 2^n. */
constexpr s64 kMaxVisits = s64{1} << 24;

/** A rule on the way from the one that was asked for, and where it goes on afterwards. */
struct Step {
	u16 rule;
	u16 outcome;  // the next one
	u32 outcomes; // acted on so far
};
constexpr size_t kStepsInPlace = 32;
/** Steps of the way that can be compared in the time of a visit. */
constexpr size_t kStepsPerVisit = 32;

/** A count kept in a local variable while a loop runs, and put back when it is left. */
class LocalCount {
public:
	explicit LocalCount(s64 &home) : home_(home), left_(home) {}
	~LocalCount() { home_ = left_; }
	LocalCount(const LocalCount &) = delete;
	LocalCount &operator=(const LocalCount &) = delete;

	bool spend(s64 cost, s64 kept)
	{
		left_ -= cost;
		return left_ >= kept;
	}
	/** Around calls that count for themselves. */
	void put_back() { home_ = left_; }
	void take_again() { left_ = home_; }

private:
	s64 &home_;
	s64 left_;
};

/** The compare that rules are compiled for: @words of value, then as many of mask. */
inline bool key_matches(const u64 *stated, size_t words, const u8 *key)
{
	for (size_t i = 0; i < words; ++i) {
		const auto wanted = vexil::load<u64>(key + i * sizeof(u64));
		const auto mask = vexil::load<u64>(key + (words + i) * sizeof(u64));
		if ((stated[i] & mask) != wanted)
			return false;
	}
	return true;
}

/** Cases of rules compared with one state. Only the state's lists are written. */
class Evaluation {
public:
	Evaluation(rm *context, rm_individual *state)
	    : context_(context), state_(state), image_(context->builder),
	      words_(vexil::key_words(context->used_bits))
	{
	}

	/** Evaluates a rule and those that it leads to. False when one cannot be evaluated. */
	[[nodiscard]] bool rule(u16 id);
	/** The same, and reported under @function. */
	[[nodiscard]] bool reported_rule(u16 id, const char *function);
	/** Every rule below the root that @wanted accepts, in image order. */
	template <typename Wanted, typename Evaluate>
	[[nodiscard]] bool each_rule(Wanted wanted, Evaluate evaluate);

private:
	using Path = vexil::Pending<Step, kStepsInPlace>;

	bool enter(Path &path, u16 rule);
	bool follow(Path &path, u16 outcome);
	bool matching_outcome(u16 rule, u16 *outcome);
	bool find_match(u16 alternative, bool *match);
	bool empty_key(u16 holder);
	bool ranges_hold(u16 condition, bool *hold);
	bool range_holds(u16 condition, bool *holds) const;

	/** False from the visit on that is one too many, in all or for the rule at hand. */
	bool visit(s64 cost = 1)
	{
		visits_left_ -= cost;
		return visits_left_ >= visits_kept_;
	}
	/** Ids take time too, and so does the list, which moves for every 16 of them. */
	bool visit_ids(Bytes ids, const rm_result &list)
	{
		constexpr size_t kIdsPerMove = 16;
		constexpr size_t kEntriesPerVisit = 512; // that move in the time of a visit
		const size_t count = ids.size() / sizeof(u16);
		const size_t moved = (count / kIdsPerMove + 1) * (list.max_result + count);
		return visit(static_cast<s64>(count + moved / kEntriesPerVisit));
	}
	bool refuse(u16 holder)
	{
		context_->builder.print_error(
			"[VEXIL][RM][%s] Internal error, invalid NODEID at [%d]\n",
			"__rm_find_setting", int{holder});
		return false;
	}

	rm *context_;
	rm_individual *state_;
	Reader image_;
	size_t words_;
	s64 visits_left_ = kMaxVisits;
	s64 visits_kept_ = 0; // for what follows the rule at hand
};

/** False when the condition cannot be read. */
bool Evaluation::range_holds(u16 condition, bool *holds) const
{
	const u16 holder = image_.child(condition);
	const Bytes record = image_.record(holder);
	if (image_.tag(condition) != EXTMEM_TAG_KEY_RANGE ||
	    image_.tag(holder) != EXTMEM_TAG_RANGE_HOLDER || record.size() < sizeof(range_desc))
		return false;
	const auto range = vexil::load<range_desc>(record.data());
	const Bytes slot_record = image_.record(range.source_node);
	if (slot_record.size() < sizeof(u64) || !state_->resBuffer)
		return false;
	const auto slot = vexil::load<u64>(slot_record.data());
	if (slot >= context_->res_num)
		return false;
	const u64 number = state_->resBuffer[slot];
	*holds = range.minData <= number && number <= range.maxData;
	return true;
}

/** Every range of an alternative, from the first on. False when one cannot be read. */
bool Evaluation::ranges_hold(u16 condition, bool *hold)
{
	*hold = true;
	for (; *hold && condition != kNoNode; condition = image_.next(condition)) {
		if (!visit())
			return refuse(condition);
		if (!range_holds(condition, hold))
			return false;
	}
	return true;
}

/**
 * The first of a chain of alternatives that matches. False when one cannot be read.
 *
 * Evaluation spends its time here, so each check is made once: ids lie in the store, nodes have
 * links, a key description and a key record of the right length are what they say.
 */
bool Evaluation::find_match(u16 alternative, bool *match)
{
	const Reader image = image_;
	const u64 *const stated = state_->keyBuffer;
	const size_t words = words_;
	const size_t bytes = vexil::key_bytes(words);
	const size_t offsets = image.offsets_for(bytes);
	const s64 kept = visits_kept_;
	const s64 cost = 1 + static_cast<s64>(words / kBitsPerWord);
	LocalCount visits(visits_left_);
	*match = false;
	while (alternative != kNoNode) {
		if (!visits.spend(cost, kept))
			return refuse(alternative);
		const vexil::NodeWord node = image.node(alternative);
		if (!node.has_links() || !image.holds(node.child()))
			return false;
		const vexil::NodeWord description = image.node(node.child());
		const u16 holder = description.child();
		if (description.tag() != EXTMEM_TAG_KEY_DESCRIPTION || !image.holds(holder))
			return false;
		const u32 offset = image.offset(holder);
		if ((!image.node(holder).is_record(EXTMEM_TAG_KEY_HOLDER, bytes) || offset >= offsets) &&
		    !empty_key(holder))
			return false;
		if (words == 0 || key_matches(stated, words, image.bytes_at(offset))) {
			visits.put_back();
			const bool readable = ranges_hold(image.next(description), match);
			visits.take_again();
			if (!readable || *match)
				return readable;
		}
		alternative = image.holds(node.next()) ? node.next() : kNoNode;
	}
	return true;
}

/**
 * Whether a key record that is not of the key's length is so rightly: without sources there is no
 * key, and the record is empty. False, and logged, for other lengths; false for other records.
 */
bool Evaluation::empty_key(u16 holder)
{
	if (image_.tag(holder) != EXTMEM_TAG_KEY_HOLDER)
		return false;
	if (words_ == 0 && image_.record(holder).empty())
		return true;
	context_->builder.print_error("[VEXIL][RM][%s] Data length check failed.", "__rm_find_setting");
	return false;
}

/** The first outcome of the first matching case; kNoNode without one. */
bool Evaluation::matching_outcome(u16 rule, u16 *outcome)
{
	*outcome = kNoNode;
	// A rule has no more cases and alternatives than the store has nodes, unless they form a ring.
	const auto most = static_cast<s64>(vexil::node_slots(context_->builder));
	visits_kept_ = visits_left_ > most ? visits_left_ - most : 0;
	for (u16 node = image_.child(rule); node != kNoNode; node = image_.next(node)) {
		const u16 body = image_.child(node);
		bool match;
		if (!visit())
			return refuse(node);
		if (!find_match(image_.child(body), &match))
			return false;
		if (match) {
			*outcome = image_.next(body);
			return true;
		}
	}
	return true;
}

/** Puts a rule at the end of the path, with the outcomes of its matching case. */
bool Evaluation::enter(Path &path, u16 rule)
{
	constexpr int kNoMemoryReport = 907;
	Step step{rule, kNoNode, 0};
	const bool readable = matching_outcome(rule, &step.outcome);
	visits_kept_ = 0;
	if (!readable)
		return false;
	if (path.push(step))
		return true;
	vexil::lib_fail("__rm_find_setting", kNoMemoryReport);
	return false;
}

/**
 * Acts on one outcome. A rule that is on the path already would lead there again for ever, since
 * evaluation does not change the key: it is refused, as an id that is none.
 */
bool Evaluation::follow(Path &path, u16 outcome)
{
	const u16 holder = image_.child(outcome);
	const Bytes record = image_.record(holder);
	const int tag = image_.tag(holder);
	switch (tag) {
	case EXTMEM_TAG_VALUE_HOLDER:
		if (!visit_ids(record, state_->result))
			return refuse(holder);
		vexil::store_ids(context_, state_, vexil::kSettingList, record);
		return true;
	case EXTMEM_TAG_PRESET_HOLDER:
		if (!visit_ids(record, state_->preset))
			return refuse(holder);
		vexil::store_ids(context_, state_, vexil::kPresetList, record);
		return true;
	case EXTMEM_TAG_NODE_HOLDER: {
		const u16 next = record.size() >= sizeof(u16) ? vexil::load<u16>(record.data()) : kNoNode;
		if (image_.tag(next) != EXTMEM_TAG_RULE || !visit(static_cast<s64>(path.size() / kStepsPerVisit)) ||
		    path.contains([next](const Step &step) { return step.rule == next; }))
			return refuse(holder);
		return enter(path, next);
	}
	default:
		context_->builder.print_error("[VEXIL][RM][%s] Invalid tag tag%d\n",
					      "__rm_find_setting", tag);
		return true;
	}
}

bool Evaluation::rule(u16 id)
{
	if (!image_.holds(id) || !state_->keyBuffer)
		return false;
	Path path(context_->builder);
	if (!enter(path, id))
		return false;
	while (!path.empty()) {
		const u16 outcome = path.top().outcome;
		if (outcome == kNoNode) {
			path.pop();
			continue;
		}
		path.top().outcome = image_.next(outcome);
		if (!visit() || path.top().outcomes++ == vexil::node_slots(context_->builder))
			return refuse(outcome);
		if (!follow(path, outcome))
			return false;
	}
	return true;
}

bool Evaluation::reported_rule(u16 id, const char *function)
{
	if (rule(id))
		return true;
	context_->builder.print_error("[VEXIL][RM][%s] Error while searching rule node %d\n",
				      function, int{id});
	return false;
}

template <typename Wanted, typename Evaluate>
bool Evaluation::each_rule(Wanted wanted, Evaluate evaluate)
{
	for (u16 holder = image_.child(context_->root.id); holder != kNoNode;
	     holder = image_.next(holder)) {
		const u16 id = image_.child(holder);
		if (!visit())
			return refuse(holder);
		if (image_.tag(id) == EXTMEM_TAG_RULE && wanted(id) && !evaluate(id))
			return false;
	}
	return true;
}

/** Rules named in a list. */
struct RuleList {
	u16 ids[kMaxListedRules];
	size_t count;
	bool exclude;

	bool contains(u16 id) const
	{
		for (size_t i = 0; i < count; ++i) {
			if (ids[i] == id)
				return true;
		}
		return false;
	}
};

bool is_dropped(char c)
{
	return c == ' ' || c == '-';
}

void report_unknown_rule(rm *context, const char *function, const char *token, const char *end)
{
	const vexil::Scratch<char> name(context->builder, static_cast<size_t>(end - token) + 1);
	size_t length = 0;
	for (; name && token < end; ++token) {
		if (!is_dropped(*token))
			name[length++] = *token;
	}
	context->builder.print_error("[VEXIL][RM][%s] Invalid rule %s\n", function,
				     vexil::shown(name.get()));
}

/** Looks the names of a ";" list up where they stand: nothing is copied. */
void read_rules(rm *context, const char *text, const char *function, RuleList *list)
{
	list->count = 0;
	list->exclude = false;
	for (const char *token = text;; ++text) {
		vexil::TrieCursor cursor(context->rulename_map);
		bool empty = true;
		for (token = text; *text != '\0' && *text != ';'; ++text) {
			list->exclude |= *text == '-';
			if (is_dropped(*text))
				continue;
			cursor.feed(*text);
			empty = false;
		}
		const int id = cursor.value();
		if (!empty && id == kNoValue)
			report_unknown_rule(context, function, token, text);
		else if (!empty && static_cast<u16>(id) != kNoNode && list->count < kMaxListedRules)
			list->ids[list->count++] = static_cast<u16>(id);
		if (*text == '\0')
			return;
	}
}

/** What a token of a source filter states. */
struct Statement {
	u16 label;
	u64 number;
};

/**
 * A label as it stands, or a value source with a number of its own, which then also counts for what
 * follows. False for a name that is unknown.
 */
bool read_statement(const rm *context, char *token, u64 *number, Statement *statement)
{
	int label = ctrie_find(&context->source_map, token);
	if (label == kNoValue) {
		char *text = token;
		while (*text != '\0' && *text != ':')
			++text;
		if (*text == '\0')
			return false;
		*text = '\0';
		vexil_strtoull(text + 1, number, kDetectBase);
		label = ctrie_find(&context->source_map, token);
	}
	if (label == kNoValue)
		return false;
	*statement = {static_cast<u16>(label), *number};
	return true;
}

/** Stores the number of a value source. True also for sources without a slot. */
bool store_number(rm *context, rm_individual *state, const Statement &statement)
{
	const u16 holder = vexil::slot_node(context, statement.label);
	if (holder == kNoNode)
		return true;
	const Bytes record = vexil::payload(extmem_create_node_d(&context->builder, holder));
	const u64 slot = record.size() >= sizeof(u64) ? vexil::load<u64>(record.data()) : ~u64{0};
	if (!state->resBuffer || slot >= context->res_num) {
		context->builder.print_error("[VEXIL][RM][%s] resBuffer us NULL \n",
					     "__rm_build_key");
		return false;
	}
	state->resBuffer[slot] = statement.number;
	return true;
}

bool apply(rm *context, rm_individual *state, const Statement &statement)
{
	const size_t words = vexil::key_words(context->used_bits);
	source_desc field;
	if (!store_number(context, state, statement) ||
	    !vexil::read_field(extmem_create_node_d(&context->builder, statement.label), words, &field))
		return false;
	vexil::set_field(state->keyBuffer, state->keyBuffer + words, field);
	return true;
}

/** The next token without its blanks; false when it is too long. */
bool next_token(const char **text, char (&token)[kTokenBytes])
{
	size_t length = 0;
	for (; **text != '\0' && **text != ';'; ++*text) {
		if (**text == ' ')
			continue;
		if (length == kTokenBytes - 1)
			return false;
		token[length++] = **text;
	}
	token[length] = '\0';
	return true;
}

} // namespace

namespace vexil {

bool trigger(rm *context, rm_individual *state, const char *rule_name, const char *function)
{
	state->result.num_result = 0;
	state->preset.num_result = 0;
	Evaluation evaluation(context, state);
	const auto evaluate = [&](u16 id) { return evaluation.reported_rule(id, function); };
	if (!rule_name)
		return evaluation.each_rule([](u16) { return true; }, evaluate);
	RuleList list;
	read_rules(context, rule_name, function, &list);
	if (list.exclude)
		return evaluation.each_rule([&](u16 id) { return !list.contains(id); }, evaluate);
	for (size_t i = 0; i < list.count; ++i) {
		if (!evaluate(list.ids[i]))
			return false;
	}
	return true;
}

bool find(rm *context, rm_individual *emptied, const char *source_filter, const char *rule_name,
	  const FindReport &report)
{
	emptied->result.num_result = 0;
	emptied->preset.num_result = 0;
	rm_individual *state = &context->rmInd;
	Evaluation evaluation(context, state);
	const auto evaluate = [&](u16 id) {
		return __rm_build_key(context, state, source_filter, 0) &&
		       (report.failed_rules ? evaluation.reported_rule(id, report.function)
					    : evaluation.rule(id));
	};
	if (!rule_name)
		return evaluation.each_rule([](u16) { return true; }, evaluate);
	const int id = ctrie_find(&context->rulename_map, rule_name);
	if (id == kNoValue || static_cast<u16>(id) == kNoNode) {
		context->builder.print_error("[VEXIL][RM][%s] Invalid rule %s\n", report.function,
					     rule_name);
		return false;
	}
	return evaluate(static_cast<u16>(id));
}

bool clear(const rm *context, rm_individual *state)
{
	if (!state->keyBuffer)
		return false;
	memset(state->keyBuffer, 0, key_bytes(key_words(context->used_bits)));
	if (!state->resBuffer)
		return false;
	memset(state->resBuffer, 0, context->res_num * sizeof(u64));
	return true;
}

size_t get_list(const rm_result &list, u16 **out)
{
	if (!out)
		return 0;
	*out = list.result_list;
	return list.num_result;
}

} // namespace vexil

extern "C" {

bool __rm_build_key(rm *pRm, rm_individual *pRmInd, const char *source_filter, u64 source_value)
{
	if (!pRm || !pRmInd || !source_filter || !pRmInd->keyBuffer)
		return false;
	char token[kTokenBytes];
	u64 number = source_value;
	for (;; ++source_filter) {
		if (!next_token(&source_filter, token))
			return false;
		Statement statement;
		if (token[0] != '\0' && read_statement(pRm, token, &number, &statement) &&
		    !apply(pRm, pRmInd, statement))
			return false;
		if (*source_filter == '\0')
			return true;
	}
}

bool __rm_find_setting(rm *pRm, rm_individual *pRmInd, node_d rule_rootd)
{
	if (!pRm || !pRmInd || rule_rootd.owner != &pRm->builder)
		return false;
	return Evaluation(pRm, pRmInd).rule(rule_rootd.id);
}

bool rm_set(rm *pRm, const char *source_filter, u64 source_value)
{
	return pRm && __rm_build_key(pRm, &pRm->rmInd, source_filter, source_value);
}

bool rm_trigger(rm *pRm, const char *rule_name)
{
	return pRm && vexil::trigger(pRm, &pRm->rmInd, rule_name, "rm_trigger");
}

bool rm_find(rm *pRm, const char *source_filter, const char *rule_name)
{
	if (!pRm || !source_filter)
		return false;
	return vexil::find(pRm, &pRm->rmInd, source_filter, rule_name, {"rm_find", false});
}

bool rm_clear(rm *pRm)
{
	return pRm && vexil::clear(pRm, &pRm->rmInd);
}

size_t rm_get_result(rm *pRm, u16 **result_array)
{
	return pRm ? vexil::get_list(pRm->rmInd.result, result_array) : 0;
}

size_t rm_get_preset(rm *pRm, u16 **preset_array)
{
	return pRm ? vexil::get_list(pRm->rmInd.preset, preset_array) : 0;
}

size_t rm_get_num_result(rm *pRm)
{
	return pRm ? pRm->rmInd.result.num_result : 0;
}

} // extern "C"
