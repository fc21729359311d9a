// SPDX-License-Identifier: MIT
/*
 * The memory-status record, and the conversion that the library offers.
 */
#include "story.h"

static void tell_record(struct story *s, const vexil_mem_info *record)
{
	say(s, "record: %llx %llx %zu, tries %zu %zu, maps %zu %zu, rules %zu %zu",
	    record->base_addr, record->base_ptr, record->buf_max, record->ctrie_offset,
	    record->ctrie_used, record->pim_offset, record->pim_used, record->rm_offset,
	    record->rm_used);
}

void scenario_memory(struct story *s)
{
	static const struct {
		const char *text;
		int base;
		u64 value;
	} numbers[] = {
		{"0x1f", 16, 31},
		{"0x1f", 0, 31},
		{"0x1f", 10, 0},
		{"12abc", 10, 0},
		{"42\n", 10, 42},
		{"42\n\n", 10, 0},
		{"18446744073709551615", 10, ~0ull},
		{"18446744073709551616", 10, 0},
		{"-1", 10, 0},
		{"+1", 10, 1},
		{"", 0, 0},
	};
	vexil_mem_info record, back, empty;
	unsigned int i;
	u64 value;

	/* Whatever an earlier round or another driver left there. */
	fill_bytes(&empty, 0, sizeof empty);
	expect(s, "mem_init of zeros", vexil_mem_init(&empty), true);
	fill_bytes(&back, 0x5A, sizeof back);
	expect(s, "mem_status", vexil_mem_status(&back), true);
	tell_record(s, &back);
	check(s, same_bytes(&back, &empty, sizeof back), "the record is not the deposited one");

	record.base_addr = 0x123456789ABCDEF0ull;
	record.base_ptr = ~0ull;
	record.buf_max = 1 << 20;
	record.ctrie_offset = 1;
	record.ctrie_used = 2;
	record.pim_offset = 3;
	record.pim_used = 4;
	record.rm_offset = 5;
	record.rm_used = 6;
	expect(s, "mem_init", vexil_mem_init(&record), true);
	expect(s, "mem_init of NULL", vexil_mem_init(NULL), false);
	expect(s, "mem_status into NULL", vexil_mem_status(NULL), false);
	expect(s, "mem_alloc", vexil_mem_alloc(), true);
	expect(s, "mem_status again", vexil_mem_status(&back), true);
	tell_record(s, &back);
	check(s, same_bytes(&back, &record, sizeof back),
	      "the second record is not the deposited one");
	vexil_mem_init(&empty);

	for (i = 0; i < sizeof numbers / sizeof numbers[0]; i++) {
		value = 0xABCD;
		vexil_strtoull(numbers[i].text, &value, numbers[i].base);
		say(s, "strtoull '%s' base %d -> %llu", numbers[i].text, numbers[i].base, value);
		check(s, value == numbers[i].value, "'%s' base %d is %llu", numbers[i].text,
		      numbers[i].base, value);
	}
	value = 77;
	vexil_strtoull(NULL, &value, 10);
	vexil_strtoull("1", NULL, 10);
	expect_number(s, "strtoull of NULL leaves", value, 77);
}
