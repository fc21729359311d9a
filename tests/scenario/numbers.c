// SPDX-License-Identifier: MIT
/*
 * The platform's conversions of texts to numbers, over some ten thousand texts. What they should
 * give is worked out here once more, in another way, so that a difference is named where it shows
 * and not only when transcripts are compared.
 */
#include "story.h"

#define EINVAL_RESULT (-22)
#define ERANGE_RESULT (-34)
#define UNTOUCHED 0x5A5A5A5A5A5A5A5Aull

static unsigned int digit_of(char c)
{
	if (c >= '0' && c <= '9')
		return (unsigned int)(c - '0');
	if (c >= 'a' && c <= 'f')
		return (unsigned int)(c - 'a') + 10;
	if (c >= 'A' && c <= 'F')
		return (unsigned int)(c - 'A') + 10;
	return 99;
}

/** Value in two halves of 32 bits: what does not fit shows in the upper half's carry. */
static int reference_magnitude(const char *text, unsigned int base, u64 *value)
{
	u64 high = 0, low = 0;
	unsigned int digits = 0;
	bool fits = true;

	if (base == 0) {
		base = 10;
		if (text[0] == '0')
			base = (text[1] == 'x' || text[1] == 'X') && digit_of(text[2]) < 16 ? 16
											    : 8;
	}
	if (base == 16 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X'))
		text += 2;
	for (; digit_of(*text) < base; text++, digits++) {
		low = low * base + digit_of(*text);
		high = high * base + (low >> 32);
		low &= 0xFFFFFFFF;
		if (high >> 32) {
			fits = false;
			high &= 0xFFFFFFFF;
		}
	}
	if (!fits)
		return ERANGE_RESULT;
	if (digits == 0)
		return EINVAL_RESULT;
	if (*text == '\n')
		text++;
	if (*text)
		return EINVAL_RESULT;
	*value = high << 32 | low;
	return 0;
}

static int reference_unsigned(const char *text, unsigned int base, u64 *value)
{
	return reference_magnitude(*text == '+' ? text + 1 : text, base, value);
}

static int reference_signed(const char *text, unsigned int base, u64 *value)
{
	u64 magnitude = 0;
	const bool negative = *text == '-';
	const int result = negative ? reference_magnitude(text + 1, base, &magnitude)
				    : reference_unsigned(text, base, &magnitude);

	if (result)
		return result;
	if (magnitude > 0x7FFFFFFFFFFFFFFFull + negative)
		return ERANGE_RESULT;
	*value = negative ? 0 - magnitude : magnitude;
	return 0;
}

struct family {
	unsigned int texts, converted;
	u64 digest;
};

/** Converts one text in every base; @family takes the results, @told tells them. */
static void convert(struct story *s, const char *text, struct family *family, bool told)
{
	static const unsigned int bases[] = {0, 2, 8, 10, 16};
	unsigned int i;

	for (i = 0; i < sizeof bases / sizeof bases[0]; i++) {
		unsigned long long plain = UNTOUCHED;
		long long with_sign = (long long)UNTOUCHED;
		u64 expected = UNTOUCHED, expected_signed = UNTOUCHED;
		const int result = s->env->strtoull(text, bases[i], &plain);
		const int signed_result = s->env->strtoll(text, bases[i], &with_sign);
		const int reference = reference_unsigned(text, bases[i], &expected);
		const int signed_reference = reference_signed(text, bases[i], &expected_signed);

		if (told)
			say(s, "'%s' base %u: %d %llx, %d %llx", text, bases[i], result, (u64)plain,
			    signed_result, (u64)with_sign);
		check(s, result == reference && plain == expected,
		      "'%s' base %u: %d %llx instead of %d %llx", text, bases[i], result,
		      (u64)plain, reference, expected);
		check(s, signed_result == signed_reference && (u64)with_sign == expected_signed,
		      "'%s' base %u, signed: %d %llx instead of %d %llx", text, bases[i],
		      signed_result, (u64)with_sign, signed_reference, expected_signed);
		family->converted += !result;
		family->converted += !signed_result;
		family->digest = digest_bytes(family->digest, &result, sizeof result);
		family->digest = digest_bytes(family->digest, &plain, sizeof plain);
		family->digest = digest_bytes(family->digest, &signed_result, sizeof signed_result);
		family->digest = digest_bytes(family->digest, &with_sign, sizeof with_sign);
	}
	family->texts++;
}

static void tell_family(struct story *s, const char *what, struct family *family)
{
	say(s, "%s: %u texts, %u conversions succeed, digest %016llx", what, family->texts,
	    family->converted, family->digest);
	family->texts = family->converted = 0;
	family->digest = DIGEST_START;
	breathe(s);
}

/** Digits of @value plus a small step in @base, added to @text; the step may pass 64 bits. */
static void add_digits(struct text *text, u64 value, int step, unsigned int base, bool upper)
{
	char digits[72];
	unsigned int count = 0;
	int carry = step;

	while (value || carry > 0 || count == 0) {
		int digit = (int)(value % base) + carry;

		value /= base;
		carry = 0;
		if (digit < 0) {
			digit += (int)base;
			carry = -1;
		} else if (digit >= (int)base) {
			digit -= (int)base;
			carry = 1;
		}
		digits[count++] = (upper ? "0123456789ABCDEF" : "0123456789abcdef")[digit];
		if (count == sizeof digits)
			break;
	}
	while (count)
		text_fill(text, digits[--count], 1);
}

/** Around every border, in every base, with every prefix, sign and end. */
static void borders(struct story *s)
{
	static const u64 values[] = {0,
				     7,
				     8,
				     9,
				     10,
				     15,
				     16,
				     255,
				     0x7FFFFFFF,
				     0xFFFFFFFF,
				     0x0FFFFFFFFFFFFFFF,
				     0x7FFFFFFFFFFFFFFF,
				     0xFFFFFFFFFFFFFFFF,
				     0x1999999999999999};
	static const unsigned int bases[] = {2, 8, 10, 16};
	static const char *const signs[] = {"", "+", "-", "--", "+-", "-+", " ", "- "};
	static const char *const prefixes[] = {"", "0", "0x", "0X", "00", "x"};
	static const char *const ends[] = {"", "\n", "\n\n", " ", "g", "\r\n"};
	static const char *const names[] = {"borders in base 2", "borders in base 8",
					    "borders in base 10", "borders in base 16"};
	struct family family = {0, 0, DIGEST_START};
	struct text text;
	unsigned int b, v, i, p, e;
	int step;

	if (!text_begin(s, &text, 120))
		return;
	for (b = 0; b < 4; b++) {
		for (v = 0; v < sizeof values / sizeof values[0]; v++) {
			for (step = -1; step <= 1; step++) {
				if (values[v] == 0 && step < 0)
					continue;
				for (i = 0; i < 8; i++) {
					for (p = 0; p < 6; p++) {
						/* Not every end with every sign. */
						e = (i + p + v) % 6;
						text.length = 0;
						text_add(&text, "%s%s", signs[i], prefixes[p]);
						add_digits(&text, values[v], step, bases[b], v % 2);
						text_add(&text, "%s", ends[e]);
						convert(s, text.bytes, &family, false);
					}
				}
			}
		}
		tell_family(s, names[b], &family);
	}
	text_end(s, &text);
}

/** Every text of up to @length characters from a small alphabet. */
static void all_texts(struct story *s, const char *alphabet, unsigned int length)
{
	const unsigned int letters = (unsigned int)text_length(alphabet);
	struct family family = {0, 0, DIGEST_START};
	unsigned int many = 1, size, i, j, rest;
	char text[8];
	char what[40];

	for (size = 0; size <= length; size++) {
		for (i = 0; i < many; i++) {
			for (j = 0, rest = i; j < size; j++, rest /= letters)
				text[j] = alphabet[rest % letters];
			text[size] = '\0';
			convert(s, text, &family, false);
		}
		many *= letters;
	}
	put(what, sizeof what, "up to %u characters of '%s'", length, alphabet);
	tell_family(s, what, &family);
}

void scenario_numbers(struct story *s)
{
	static const char *const texts[] = {
		"",
		"\n",
		" ",
		"+",
		"-",
		"+\n",
		"-\n",
		"++1",
		"--1",
		"+-1",
		"-+1",
		"0",
		"-0",
		"+0",
		"00",
		"0x",
		"0X",
		"0x\n",
		"0xg",
		"x1",
		"0x0",
		"0x1f",
		"0X1F",
		"-0x1f",
		"+0x1f",
		"0x-1",
		"0x+1",
		"0x0x1",
		"1f",
		"1F",
		"g",
		"08",
		"010",
		"0o10",
		"0b1",
		"12abc",
		"12 ",
		" 12",
		"1 2",
		"1\n",
		"1\n\n",
		"1\n1",
		"\n1",
		"1\r\n",
		"1\t",
		"1.",
		"1.5",
		"1e3",
		"1_000",
		"1,000",
		"0x1.8p1",
		"2",
		"102",
		"111111111111111111111111111111111111111111111111111111111111111",
		"1111111111111111111111111111111111111111111111111111111111111111",
		"11111111111111111111111111111111111111111111111111111111111111111",
		"777777777777777777777",
		"1777777777777777777777",
		"2000000000000000000000",
		"9223372036854775807",
		"9223372036854775808",
		"-9223372036854775808",
		"-9223372036854775809",
		"18446744073709551615",
		"18446744073709551616",
		"-18446744073709551615",
		"-18446744073709551616",
		"18446744073709551615\n",
		"18446744073709551616x",
		"99999999999999999999x",
		"184467440737095516150",
		"0x7fffffffffffffff",
		"0x8000000000000000",
		"-0x8000000000000000",
		"-0x8000000000000001",
		"0xffffffffffffffff",
		"0x10000000000000000",
		"ffffffffffffffff",
		"10000000000000000",
		"00000000000000000000000000000000000000000000000000000000000000000000000001",
		"0x0000000000000000000000000000000000000000000000000000000000000000000001",
		"\x80",
		"1\x80",
		"\xB2",
		"\xEF\xBC\x91",
		"@",
		"G",
		"`",
		"/",
		":",
		"infinity",
		"nan",
		"null",
	};
	struct family family = {0, 0, DIGEST_START};
	unsigned int i;
	char one[2] = {0, 0};

	for (i = 0; i < sizeof texts / sizeof texts[0]; i++)
		convert(s, texts[i], &family, true);
	tell_family(s, "texts by hand", &family);
	for (i = 1; i < 256; i++) {
		one[0] = (char)i;
		convert(s, one, &family, false);
	}
	tell_family(s, "single characters", &family);
	borders(s);
	all_texts(s, "01x-+\n", 4);
	all_texts(s, "09afgX", 4);
	all_texts(s, "0xF ", 5);
}
