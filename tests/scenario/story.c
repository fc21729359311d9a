// SPDX-License-Identifier: MIT
/*
 * Lines, checks, bytes and deliveries.
 */
#include "story.h"

struct story *story_current;

/* ---- formatting ---- */

/** Where formatted text goes: counts on when @room is used up. */
struct sink {
	char *to;
	size_t room; /* without the NUL */
	size_t length;
};

static void put_char(struct sink *sink, char c)
{
	if (sink->length < sink->room)
		sink->to[sink->length] = c;
	sink->length++;
}

static void put_number(struct sink *sink, u64 value, unsigned int base, bool negative,
		       unsigned int width, bool zeros)
{
	char digits[24];
	unsigned int count = 0;

	do {
		digits[count++] = "0123456789abcdef"[value % base];
		value /= base;
	} while (value);
	if (negative && zeros)
		put_char(sink, '-');
	while (width > count + negative) {
		put_char(sink, zeros ? '0' : ' ');
		width--;
	}
	if (negative && !zeros)
		put_char(sink, '-');
	while (count)
		put_char(sink, digits[--count]);
}

/** Texts may come from anywhere: only printable ASCII reaches the transcript. */
static void put_text(struct sink *sink, const char *text)
{
	for (text = text ? text : "(null)"; *text; text++) {
		const unsigned char c = (unsigned char)*text;

		if (c >= 0x20 && c < 0x7F) {
			put_char(sink, *text);
			continue;
		}
		put_char(sink, '\\');
		put_char(sink, 'x');
		put_number(sink, c, 16, false, 2, true);
	}
}

static void put_signed(struct sink *sink, s64 value, unsigned int width, bool zeros)
{
	const u64 magnitude = value < 0 ? 0 - (u64)value : (u64)value;

	put_number(sink, magnitude, 10, value < 0, width, zeros);
}

static void format_into(struct sink *sink, const char *format, __builtin_va_list arguments)
{
	for (; *format; format++) {
		unsigned int width = 0, longs = 0;
		bool zeros = false, size = false;
		u64 value;

		if (*format != '%') {
			put_char(sink, *format);
			continue;
		}
		if (*++format == '0')
			zeros = true;
		for (; *format >= '0' && *format <= '9'; format++)
			width = width * 10 + (unsigned int)(*format - '0');
		for (; *format == 'l'; format++)
			longs++;
		if (*format == 'z') {
			size = true;
			format++;
		}
		switch (*format) {
		case 's':
			put_text(sink, __builtin_va_arg(arguments, const char *));
			break;
		case 'c': {
			const char one[2] = {(char)__builtin_va_arg(arguments, int), 0};

			put_text(sink, one);
			break;
		}
		case 'd':
			put_signed(sink,
				   longs ? __builtin_va_arg(arguments, s64)
					 : __builtin_va_arg(arguments, int),
				   width, zeros);
			break;
		case 'u':
		case 'x':
			if (size)
				value = __builtin_va_arg(arguments, size_t);
			else if (longs)
				value = __builtin_va_arg(arguments, u64);
			else
				value = __builtin_va_arg(arguments, unsigned int);
			put_number(sink, value, *format == 'x' ? 16 : 10, false, width, zeros);
			break;
		case '%':
			put_char(sink, '%');
			break;
		default:
			return; /* no such conversion: what follows cannot be trusted */
		}
	}
}

static void end_sink(struct sink *sink)
{
	if (sink->to)
		sink->to[sink->length < sink->room ? sink->length : sink->room] = '\0';
}

size_t put(char *to, size_t size, const char *format, ...)
{
	struct sink sink = {to, size ? size - 1 : 0, 0};
	__builtin_va_list arguments;

	__builtin_va_start(arguments, format);
	format_into(&sink, format, arguments);
	__builtin_va_end(arguments);
	if (size)
		end_sink(&sink);
	return sink.length;
}

static void write_line(struct story *s)
{
	s->digest = digest_bytes(s->digest, s->line, text_length(s->line) + 1);
	if (s->round <= 1)
		s->env->line(s->env->context, s->line);
}

void say(struct story *s, const char *format, ...)
{
	struct sink sink = {s->line, STORY_LINE, 0};
	__builtin_va_list arguments;

	__builtin_va_start(arguments, format);
	format_into(&sink, format, arguments);
	__builtin_va_end(arguments);
	end_sink(&sink);
	write_line(s);
}

bool check(struct story *s, bool truth, const char *format, ...)
{
	struct sink sink = {s->line, STORY_LINE, 0};
	__builtin_va_list arguments;

	s->checks++;
	if (truth || s->env->starved)
		return truth;
	s->failed++;
	sink.length = put(s->line, STORY_LINE, "vexil scenario: FAILED %s: ", s->scenario);
	__builtin_va_start(arguments, format);
	format_into(&sink, format, arguments);
	__builtin_va_end(arguments);
	end_sink(&sink);
	/* Told in every round. */
	s->env->line(s->env->context, s->line);
	return truth;
}

bool expect(struct story *s, const char *what, bool result, bool expected)
{
	say(s, "%s -> %s", what, result ? "true" : "false");
	return check(s, result == expected, "%s is %s", what, result ? "true" : "false");
}

bool expect_number(struct story *s, const char *what, u64 result, u64 expected)
{
	say(s, "%s -> %llu", what, result);
	return check(s, result == expected, "%s is %llu, not %llu", what, result, expected);
}

void breathe(struct story *s)
{
	if (s->env->pause)
		s->env->pause(s->env->context);
}

/* ---- bytes and texts ---- */

void *get_memory(struct story *s, size_t size)
{
	void *block = s->env->allocate(s->env->context, size);

	if (block)
		fill_bytes(block, 0, size);
	check(s, block, "no memory for %zu bytes", size);
	return block;
}

void put_memory(struct story *s, void *block)
{
	if (block)
		s->env->release(s->env->context, block);
}

void copy_bytes(void *to, const void *from, size_t size)
{
	__builtin_memcpy(to, from, size);
}

void fill_bytes(void *to, int byte, size_t size)
{
	__builtin_memset(to, byte, size);
}

bool same_bytes(const void *a, const void *b, size_t size)
{
	const char *left = a, *right = b;

	while (size && *left == *right) {
		left++;
		right++;
		size--;
	}
	return size == 0;
}

size_t text_length(const char *text)
{
	size_t length = 0;

	while (text[length])
		length++;
	return length;
}

bool same_text(const char *a, const char *b)
{
	return a && b && text_length(a) == text_length(b) && same_bytes(a, b, text_length(a));
}

bool starts_with(const char *text, const char *start)
{
	for (; *start; text++, start++) {
		if (*text != *start)
			return false;
	}
	return true;
}

u64 digest_bytes(u64 digest, const void *bytes, size_t size)
{
	const unsigned char *byte = bytes;

	for (; size; byte++, size--)
		digest = (digest ^ *byte) * 0x100000001B3ull;
	return digest;
}

u32 word_at(const char *bytes, unsigned int width)
{
	u32 value = 0;

	while (width--)
		value = value << 8 | (unsigned char)bytes[width];
	return value;
}

void set_word(char *bytes, unsigned int width, u32 value)
{
	for (; width; width--, value >>= 8)
		*bytes++ = (char)(value & 0xFF);
}

bool text_begin(struct story *s, struct text *text, size_t room)
{
	text->bytes = get_memory(s, room);
	text->length = 0;
	text->room = room;
	return text->bytes;
}

void text_add(struct text *text, const char *format, ...)
{
	struct sink sink;
	__builtin_va_list arguments;

	if (!text->bytes)
		return;
	sink.to = text->bytes + text->length;
	sink.room = text->room - text->length - 1;
	sink.length = 0;
	__builtin_va_start(arguments, format);
	format_into(&sink, format, arguments);
	__builtin_va_end(arguments);
	end_sink(&sink);
	text->length += sink.length < sink.room ? sink.length : sink.room;
}

void text_fill(struct text *text, char c, size_t count)
{
	if (!text->bytes)
		return;
	for (; count && text->length + 1 < text->room; count--)
		text->bytes[text->length++] = c;
	text->bytes[text->length] = '\0';
}

void text_end(struct story *s, struct text *text)
{
	check(s, !text->bytes || text->length + 1 < text->room, "a text of %zu bytes is too long",
	      text->room);
	put_memory(s, text->bytes);
	text->bytes = NULL;
}

/* ---- deliveries ---- */

/** Bytes that are told one by one; what is longer comes as a digest. */
#define TOLD_BYTES 72

static void tell_block(struct story *s, const char *what, int tag, const char *data, u32 length,
		       const char *entry, u32 entry_length)
{
	char bytes[2 * TOLD_BYTES + 1];
	u32 i;

	s->blocks++;
	s->block_digest = digest_bytes(s->block_digest, &tag, sizeof tag);
	s->block_digest = digest_bytes(s->block_digest, data, length);
	if (s->quiet)
		return;
	bytes[0] = '\0';
	for (i = 0; i < length && length <= TOLD_BYTES; i++)
		put(bytes + 2 * i, 3, "%02x", (unsigned int)(unsigned char)data[i]);
	if (length > TOLD_BYTES)
		put(bytes, sizeof bytes, "digest %016llx",
		    digest_bytes(DIGEST_START, data, length));
	if (entry)
		say(s, "  %s tag=%d entry=%s/%u length=%u %s", what, tag, entry, entry_length,
		    length, bytes);
	else
		say(s, "  %s tag=%d length=%u %s", what, tag, length, bytes);
}

bool receive_block(int tag, const char *data, u32 length, void *pCtx)
{
	tell_block(pCtx, "block", tag, data, length, NULL, 0);
	return true;
}

bool receive_table(int tag, const char *data, u32 length, void *pCtx)
{
	tell_block(pCtx, "table", tag, data, length, NULL, 0);
	return false; /* ignored, as it should be */
}

bool receive_algorithm(int tag, const char *data, u32 length, const char *entry, u32 entry_length)
{
	tell_block(story_current, "algorithm", tag, data, length, entry, entry_length);
	return true;
}

void tell_blocks(struct story *s, const char *what)
{
	say(s, "%s: %u blocks, digest %016llx", what, s->blocks, s->block_digest);
	s->blocks = 0;
	s->block_digest = DIGEST_START;
}
