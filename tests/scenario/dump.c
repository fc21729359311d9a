// SPDX-License-Identifier: MIT
/*
 * The dumps: every piece that the library prints is a line of the log.
 */
#include "story.h"

void scenario_dump(struct story *s)
{
	void *map = small_map(s), *rules = small_rules(s, map), *empty = NULL;
	u32 size;
	char *image = export_map(s, "small", map, &size);

	pim_print(map);
	rm_print(rules);
	drop_rules(s, &rules);
	drop_map(s, &map);
	expect(s, "adopt", CALL(s, pim_init)(&map, image, size), true);
	pim_print(map);
	drop_map(s, &map);
	put_memory(s, image);
	CALL(s, pim_init)(&empty, NULL, 0);
	pim_print(empty);
	drop_map(s, &empty);
	CALL(s, rm_init)(&empty, NULL, 0);
	rm_print(empty);
	drop_rules(s, &empty);
}
