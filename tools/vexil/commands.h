// SPDX-License-Identifier: MIT
//
// The commands, a file each. Every function adds its command to the command line.
#pragma once

#include <CLI/CLI.hpp>

namespace vexil_tool {

void add_build(CLI::App &app);
void add_info(CLI::App &app);
void add_dump(CLI::App &app);
void add_list(CLI::App &app);
void add_load(CLI::App &app);
void add_run(CLI::App &app);
void add_explain(CLI::App &app);
void add_merge(CLI::App &app);
void add_verify(CLI::App &app);
void add_presetdb(CLI::App &app);

} // namespace vexil_tool
