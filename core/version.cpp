// SPDX-License-Identifier: MIT

#include "core/version.h"

#include "core/json.h"
#include "core/number.h"

namespace {

constexpr size_t kPartBytes = 128; // of one part of a version text, NUL included

/** One part of a version text, collected character by character. */
class Part {
public:
	void add(char c)
	{
		if (length_ < kPartBytes)
			text_[length_] = c;
		++length_;
	}
	/** The collected number; @before without text, 0 when it does not parse. Starts afresh. */
	u16 take(u16 before)
	{
		if (length_ == 0)
			return before;
		const bool whole = length_ < kPartBytes;
		text_[whole ? length_ : 0] = '\0';
		length_ = 0;
		return static_cast<u16>(vexil::hexadecimal(text_));
	}

private:
	char text_[kPartBytes];
	size_t length_ = 0;
};

/** "major.minor" in hexadecimal; of several dots, the last one counts. */
void read_format(const char *text, vexil_version *version)
{
	version->u16MajorNumber = 0;
	version->u16MinorNumber = 0;
	Part part;
	for (; *text != '\0'; ++text) {
		if (*text == '.')
			version->u16MajorNumber = part.take(version->u16MajorNumber);
		else if (*text != ' ')
			part.add(*text);
	}
	version->u16MinorNumber = part.take(0);
}

void read_number(const cJSON *item, u16 *field)
{
	if (vexil::is_number(item))
		*field = static_cast<u16>(item->valuelong);
}

} // namespace

namespace vexil {

void set_cus_version(char (&to)[kCusVersionBytes], const char *from)
{
	memset(to, 0, sizeof to);
	for (size_t i = 0; i < kCusVersionBytes - 1 && from[i] != '\0'; ++i)
		to[i] = from[i];
}

} // namespace vexil

extern "C" void __pim_get_version(cJSON *ver_node, vexil_version *ver_in, char *cus_version)
{
	if (!ver_node || !ver_in)
		return;
	enum { kFormat, kMajor, kMinor, kRevision, kNote, kKeys };
	static constexpr const char *kNames[kKeys] = {"JsonVersionFormat", "MajorVersion",
						      "MinorVersion", "Revision", "Note"};
	const cJSON *found[kKeys];
	vexil::find_members(ver_node, kNames, found);

	const char *format = vexil::text_of(found[kFormat]);
	const char *note = vexil::text_of(found[kNote]);
	if (format) {
		read_format(format, ver_in);
	} else {
		read_number(found[kMajor], &ver_in->u16MajorNumber);
		read_number(found[kMinor], &ver_in->u16MinorNumber);
	}
	if (vexil::is_string(found[kRevision]))
		ver_in->u32Revision = static_cast<u32>(vexil::hexadecimal(found[kRevision]->valuestring));
	else if (vexil::is_number(found[kRevision]))
		ver_in->u32Revision = static_cast<u32>(found[kRevision]->valuelong);
	if (cus_version && note)
		vexil::set_cus_version(*reinterpret_cast<char(*)[vexil::kCusVersionBytes]>(cus_version),
				       note);
}
