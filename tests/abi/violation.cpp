// SPDX-License-Identifier: MIT
//
// Everything that the library must not hold, for the checks to notice.

#include <string>

extern int foreign_function(double value);

namespace {

struct Constructed {
	Constructed() : value(foreign_function(1.5)) {}
	int value;
} constructed;

} // namespace

inline int &unique_in_the_process()
{
	static int value = foreign_function(2.5);
	return value;
}

std::string *visible_cxx_name(double value)
{
	return new std::string(std::to_string(constructed.value + unique_in_the_process() + value));
}
