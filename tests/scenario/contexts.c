// SPDX-License-Identifier: MIT
/*
 * Maps and rules: from the embedded products, to images, away again.
 */
#include "story.h"

bool feed(struct story *s, bool (*slot)(void *context, void *json), void *context, const char *text)
{
	void *json = CALL(s, json_parse)(text);
	const bool done = json && slot(context, json);

	CALL(s, json_delete)(json);
	return done;
}

bool feed_rules(struct story *s, void *rules, const char *text, void *map)
{
	void *json = CALL(s, json_parse)(text);
	const bool done = json && CALL(s, rm_insert)(rules, json, map);

	CALL(s, json_delete)(json);
	return done;
}

void quote(char *text)
{
	for (; text && *text; text++) {
		if (*text == '\'')
			*text = '"';
	}
}

static char *quoted(struct story *s, const char *text)
{
	const size_t size = text ? text_length(text) + 1 : 0;
	char *copy = size ? get_memory(s, size) : NULL;

	if (copy)
		copy_bytes(copy, text, size);
	quote(copy);
	return copy;
}

bool give(struct story *s, const char *what, bool (*slot)(void *context, void *json), void *context,
	  const char *text, bool expected)
{
	char *copy = quoted(s, text);
	const bool done = feed(s, slot, context, copy);

	put_memory(s, copy);
	return expect(s, what, done, expected);
}

bool give_rules(struct story *s, const char *what, void *rules, const char *text, void *map,
		bool expected)
{
	char *copy = quoted(s, text);
	const bool done = feed_rules(s, rules, copy, map);

	put_memory(s, copy);
	return expect(s, what, done, expected);
}

static bool insert_into_map(struct story *s, void *map, const struct document *document)
{
	switch (document->kind) {
	case DOCUMENT_HARDWARE:
		return feed(s, CALL(s, pim_insert_regmap_json), map, document->begin);
	case DOCUMENT_SOFTWARE:
		return feed(s, CALL(s, pim_insert_vregmap_json), map, document->begin);
	case DOCUMENT_CUSTOMER:
		return feed(s, CALL(s, pim_insert_cus_vregmap_json), map, document->begin);
	case DOCUMENT_HANDLER:
		return CALL(s, pim_insert_handler)(map, document->name, receive_table);
	case DOCUMENT_FILE:
		return CALL(s, pim_insert_file)(map, document->name, document->begin,
						(u32)(document->end - document->begin));
	case DOCUMENT_GROUPS:
		return feed(s, CALL(s, pim_insert), map, document->begin);
	default:
		return true; /* not of the map */
	}
}

void *build_map(struct story *s, const char *product, bool finish)
{
	void *map = NULL;
	bool done = CALL(s, pim_init)(&map, NULL, 0);
	unsigned int i;

	check(s, done, "no empty map for %s", product);
	for (i = 0; done && i < vexil_documents_count; i++) {
		if (!same_text(vexil_documents[i].product, product))
			continue;
		done = insert_into_map(s, map, &vexil_documents[i]);
		check(s, done, "%s of %s is refused", vexil_documents[i].name, product);
		breathe(s);
	}
	done = done && CALL(s, pim_insert_alg_handler)(map, receive_algorithm);
	if (done && finish)
		done = CALL(s, pim_finish)(map);
	if (!check(s, done, "%s cannot be built", product))
		drop_map(s, &map);
	return map;
}

void *build_rules(struct story *s, const char *product, void *map)
{
	void *rules = NULL;
	bool done = map && CALL(s, rm_init)(&rules, NULL, 0);
	unsigned int i;

	for (i = 0; done && i < vexil_documents_count; i++) {
		const struct document *document = &vexil_documents[i];

		if (!same_text(document->product, product))
			continue;
		if (document->kind == DOCUMENT_SOURCES)
			done = feed(s, CALL(s, rm_insert_source_json), rules, document->begin);
		else if (document->kind == DOCUMENT_RULES)
			done = feed_rules(s, rules, document->begin, map);
		check(s, done, "%s of %s is refused", document->name, product);
		breathe(s);
	}
	done = done && CALL(s, rm_finish)(rules);
	if (!check(s, done, "the rules of %s cannot be built", product))
		drop_rules(s, &rules);
	return rules;
}

bool add_handlers(struct story *s, void *map, const char *product)
{
	bool done = CALL(s, pim_insert_alg_handler)(map, receive_algorithm);
	unsigned int i;

	for (i = 0; i < vexil_documents_count; i++) {
		if (vexil_documents[i].kind == DOCUMENT_HANDLER &&
		    same_text(vexil_documents[i].product, product))
			done &= insert_into_map(s, map, &vexil_documents[i]);
	}
	return done;
}

/** Image header: where the length of the node buffer in use follows it. */
#define NODES_AT 88

unsigned int nodes_in(const char *image)
{
	return image ? word_at(image + NODES_AT, 4) / 16 : 0;
}

/** Image header: where it says how long the whole image is. */
#define IMAGE_SIZE_AT 84

static char *finish_export(struct story *s, const char *what, char *image, size_t expected,
			   size_t written, u32 *size)
{
	say(s, "%s: image of %zu bytes, digest %016llx", what, written,
	    image ? digest_bytes(DIGEST_START, image, written) : 0);
	if (check(s, image && written == expected, "%s: %zu bytes instead of %zu", what, written,
		  expected)) {
		check(s, word_at(image + IMAGE_SIZE_AT, 4) == expected,
		      "%s: the header tells another size", what);
		*size = (u32)written;
		return image;
	}
	put_memory(s, image);
	*size = 0;
	return NULL;
}

char *export_map(struct story *s, const char *what, void *map, u32 *size)
{
	const size_t expected = CALL(s, pim_get_export_size)(map);
	char *image = expected ? get_memory(s, expected) : NULL;
	const size_t written = image ? CALL(s, pim_export)(map, image) : 0;

	return finish_export(s, what, image, expected, written, size);
}

char *export_rules(struct story *s, const char *what, void *rules, u32 *size)
{
	const size_t expected = CALL(s, rm_get_export_size)(rules);
	char *image = expected ? get_memory(s, expected) : NULL;
	const size_t written = image ? CALL(s, rm_export)(rules, image) : 0;

	return finish_export(s, what, image, expected, written, size);
}

void drop_map(struct story *s, void **map)
{
	if (*map)
		check(s, CALL(s, pim_destroy)(map) && !*map, "a map is not destroyed");
}

void drop_rules(struct story *s, void **rules)
{
	if (*rules)
		check(s, CALL(s, rm_destroy)(rules) && !*rules, "rules are not destroyed");
}

char *copy_image(struct story *s, const char *image, u32 size)
{
	char *copy = image ? get_memory(s, size) : NULL;

	if (copy)
		copy_bytes(copy, image, size);
	return copy;
}

void tell_version(struct story *s, const char *what, bool known, const vexil_version *version)
{
	say(s, "%s: %s %u.%u.%u", what, known ? "version" : "no version", version->u16MajorNumber,
	    version->u16MinorNumber, version->u32Revision);
}

void tell_ids(struct story *s, const char *what, const u16 *ids, size_t count)
{
	char text[200];
	size_t length = 0, i;

	text[0] = '\0';
	for (i = 0; i < count && i < 24; i++)
		length += put(text + length, sizeof text - length, " %u", ids[i]);
	say(s, "%s: %zu ids, digest %016llx:%s%s", what, count,
	    digest_bytes(DIGEST_START, ids, count * sizeof *ids), text, i < count ? " ..." : "");
}
