// SPDX-License-Identifier: MIT

#include <cstdarg>
#include <cstdio>
#include <memory>
#include <new>

#include "platform/host/host.h"
#include "platform/platform.h"

namespace {

void to_standard_error(const char *text, size_t length, void *)
{
	std::fwrite(text, 1, length, stderr);
}

vexil_host_log_sink log_sink = to_standard_error;
void *log_context = nullptr;

} // namespace

extern "C" {

void vexil_host_set_log_sink(vexil_host_log_sink sink, void *context)
{
	log_sink = sink ? sink : to_standard_error;
	log_context = context;
}

int _printk(const char *fmt, ...)
{
	char line[512];
	va_list arguments;
	va_start(arguments, fmt);
	const int length = std::vsnprintf(line, sizeof line, fmt, arguments);
	va_end(arguments);
	if (length < 0)
		return length;
	const auto size = static_cast<size_t>(length);
	if (size < sizeof line) {
		log_sink(line, size, log_context);
		return length;
	}
	const std::unique_ptr<char[]> whole(new (std::nothrow) char[size + 1]);
	if (!whole) {
		log_sink(line, sizeof line - 1, log_context);
		return length;
	}
	va_start(arguments, fmt);
	std::vsnprintf(whole.get(), size + 1, fmt, arguments);
	va_end(arguments);
	log_sink(whole.get(), size, log_context);
	return length;
}

} // extern "C"
