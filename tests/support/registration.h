// SPDX-License-Identifier: MIT
//
// The public-interface module's part in tests: keeps what is registered, and how.
#pragma once

#include <vexil/pubif.h>

extern "C" {
int init_module(void);
void cleanup_module(void);
}

namespace vexil_test {

/** What vexil_CBRegister has seen. It copies the table, then overwrites the one it was given. */
struct Registration {
	int calls = 0;
	const _PUBIF_VEXIL *given = nullptr; // gone when the registration is over
	_PUBIF_VEXIL copy{};
	int answer = 0; // what the registration returns
};

inline Registration &registration()
{
	static Registration instance;
	return instance;
}

} // namespace vexil_test
