// SPDX-License-Identifier: MIT
//
// Interval texts.

#include "core/number.h"
#include "rm/rm.h"

namespace {

constexpr size_t kBoundBytes = 128; // of one bound's text, NUL included
constexpr int kDetectBase = 0;

/** One bound's text, collected character by character. */
class Bound {
public:
	void add(char c)
	{
		if (length_ < kBoundBytes)
			text_[length_] = c;
		++length_;
	}
	/** The number, 0 when it does not parse; starts afresh. */
	u64 take()
	{
		text_[length_ < kBoundBytes ? length_ : 0] = '\0';
		length_ = 0;
		u64 value = 0;
		vexil_strtoull(text_, &value, kDetectBase);
		return value;
	}

private:
	char text_[kBoundBytes];
	size_t length_ = 0;
};

} // namespace

extern "C" void __rm_get_range(const char *text, range_desc *stuRange)
{
	if (!text || !stuRange)
		return;
	stuRange->minData = 0;
	stuRange->maxData = 0;
	Bound bound;
	bool exclusive = false;
	u64 last;
	for (; *text != '\0'; ++text) {
		switch (*text) {
		case ' ':
			break;
		case '[':
		case '(':
			exclusive = *text == '(';
			break;
		case ',':
			stuRange->minData = bound.take() + (exclusive ? 1 : 0);
			break;
		case ']':
			stuRange->maxData = bound.take();
			break;
		case ')':
			last = bound.take();
			stuRange->maxData = last > 0 ? last - 1 : 0;
			break;
		default:
			bound.add(*text);
			break;
		}
	}
}
