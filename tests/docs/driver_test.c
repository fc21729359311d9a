// SPDX-License-Identifier: MIT
/*
 * driver_test MAP RULES SESSION [EXPECTED]: the example driver's core on a desk. Plays the sources of
 * each line of SESSION and tells what was written, as the driver does in its guest; it must be what
 * EXPECTED says. Other budgets must lead to the same registers, and no frame may write more than it
 * has room for.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "examples/driver/pq_core.h"
#include "platform/host/host.h"

enum { kAddresses = 0x200, kLargestSetting = 12, kTold = 1 << 16 };

struct hardware {
	u16 registers[kAddresses];
	unsigned int writes; /* of the present frame */
	char told[kTold];
	size_t length;
};

static int failed;
static unsigned int log_lines;

#define CHECK(truth)                                                                               \
	do {                                                                                       \
		if (!(truth)) {                                                                    \
			fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #truth);                \
			failed = 1;                                                                \
		}                                                                                  \
	} while (0)

#define TELL(to, ...)                                                                              \
	((to)->length += (size_t)snprintf((to)->told + (to)->length, kTold - (to)->length, __VA_ARGS__))

static void write_hardware(void *context, u8 domain, u32 address, u16 mask, u16 value)
{
	struct hardware *to = context;

	CHECK(domain < E_PQ_MAX_DOMAIN && address < kAddresses && mask != 0);
	CHECK((value & ~mask) == 0);
	to->registers[address] = (u16)((to->registers[address] & ~mask) | value);
	to->writes++;
}

static void write_software(void *context, u32 number, u32 value)
{
	TELL((struct hardware *)context, "parameter %u is %u\n", number, value);
}

static void load_table(void *context, const char *bytes, u32 size)
{
	(void)bytes;
	TELL((struct hardware *)context, "tone curve of %u bytes\n", size);
}

static void load_filter(void *context, const char *name, const char *text, u32 size)
{
	(void)text;
	TELL((struct hardware *)context, "%s takes %u bytes of parameters\n", name, size);
}

static void count_log(const char *text, size_t length, void *context)
{
	(void)context;
	log_lines++;
	fwrite(text, 1, length, stderr);
}

static char *read_file(const char *path, u32 *size)
{
	FILE *file = fopen(path, "rb");
	char *bytes = malloc(kTold);
	size_t length;

	if (!file || !bytes) {
		perror(path);
		exit(2);
	}
	length = fread(bytes, 1, kTold - 1, file);
	bytes[length] = '\0';
	*size = (u32)length;
	fclose(file);
	return bytes;
}

/* Frames until nothing is left; none but the shared registers and presets are without a budget. */
static void settle(struct pq *pq, struct hardware *to)
{
	unsigned int frames = 0;
	bool more = true;

	while (more && frames < 1000) {
		const bool budgeted = !pq->common && pq->next < pq->num_settings;

		to->writes = 0;
		more = pq_frame(pq);
		frames++;
		/* A setting that is larger than a frame has one to itself, at its beginning once more. */
		if (budgeted && pq->pairs_per_frame >= kLargestSetting)
			CHECK(to->writes <= pq->pairs_per_frame);
		CHECK(to->writes <= 2 * kLargestSetting || !budgeted);
	}
	CHECK(frames < 1000);
	TELL(to, "picture set after %u frames\n", frames);
}

static void tell_registers(struct hardware *to)
{
	for (unsigned int address = 0; address < kAddresses; address++) {
		if (to->registers[address])
			TELL(to, "%03x %04x\n", address, to->registers[address]);
	}
}

/* The whole session with @pairs to a frame. */
static struct hardware *play(char **paths, u32 pairs)
{
	struct pq_image map, rules;
	struct hardware *to = calloc(1, sizeof(*to));
	struct pq *pq = malloc(sizeof(*pq));
	const struct pq_output output = {to, write_hardware, write_software, load_table, load_filter};
	u32 size;
	char *session = read_file(paths[2], &size);

	map.bytes = read_file(paths[0], &map.size);
	rules.bytes = read_file(paths[1], &rules.size);
	CHECK(pq_start(pq, vexil_host_table(), &output, pairs, map, rules) == 0);
	TELL(to, "example: begin\n");
	settle(pq, to);
	tell_registers(to);
	for (char *line = strtok(session, "\n"); line; line = strtok(NULL, "\n")) {
		TELL(to, "> %s\n", line);
		CHECK(pq_evaluate(pq, line) == 0);
		settle(pq, to);
		tell_registers(to);
	}
	TELL(to, "example: end\n");

	/* What is refused changes nothing that was waiting. */
	CHECK(pq_evaluate(pq, "Input:Tuner") == 0 && pq->num_settings == 5);
	CHECK(pq_evaluate(pq, "Ambient:Dark") != 0); /* stands for ranges, and cannot be stated */
	CHECK(pq->num_settings == 5 && pq->next == 0);

	pq_stop(pq);
	CHECK(!pq->map && !pq->rules && !pq->state);
	/* The other kind of image is refused, and nothing is kept. */
	CHECK(pq_start(pq, vexil_host_table(), &output, pairs, rules, map) != 0);
	CHECK(!pq->map && !pq->rules && !pq->state);
	free(map.bytes);
	free(rules.bytes);
	free(session);
	free(pq);
	return to;
}

int main(int argc, char **argv)
{
	static const u32 budgets[] = {1, 2, 8, 12, 17, 1000};
	struct hardware *first;
	char *expected;
	u32 size;

	if (argc != 5) {
		fprintf(stderr, "usage: driver_test MAP RULES SESSION EXPECTED\n");
		return 2;
	}
	vexil_host_set_log_sink(count_log, NULL);
	init_module();
	first = play(argv + 1, 16);
	expected = read_file(argv[4], &size);
	if (strcmp(first->told, expected) != 0) {
		fprintf(stderr, "not what %s says:\n%s", argv[4], first->told);
		failed = 1;
	}
	for (size_t i = 0; i < sizeof(budgets) / sizeof(budgets[0]); i++) {
		struct hardware *other = play(argv + 1, budgets[i]);

		CHECK(memcmp(other->registers, first->registers, sizeof(first->registers)) == 0);
		free(other);
	}
	CHECK(log_lines == 0);
	free(expected);
	free(first);
	return failed;
}
