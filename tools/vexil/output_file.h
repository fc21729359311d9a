// SPDX-License-Identifier: MIT
//
// Output that appears whole or not at all.
#pragma once

#include <string>
#include <vector>

namespace vexil_tool {

struct Output {
	std::string path;
	std::vector<char> bytes;
};

inline constexpr size_t kMostOutputs = 2;

/**
 * Puts the bytes of each output into its path: all are written to files beside them and synced,
 * then renamed over them, one after another. Whatever fails before the first takes its place, and
 * when the command is interrupted, the files beside them are removed and older ones stay as they
 * were. Should the second rename fail, or the command end between both, the first stays: whole, and
 * without the other. A link is followed; a device or pipe is written to directly, before the first
 * rename. The paths must lead to different files.
 */
void write_outputs(const std::vector<Output> &outputs);

/** True for a path that is written to directly. */
[[nodiscard]] bool is_device(const std::string &path);

/** The rule image that belongs to a PIM image: its path with the suffix .rule. */
[[nodiscard]] std::string rules_beside(const std::string &path);

/**
 * A usage error when both images would be written to one file, by whatever names and links.
 * @command: as it was called, for the hint
 */
void check_outputs(const std::string &map, const std::string &rules, const char *command);

/** Says that there are rules, but no file for them, because the map goes to a device. */
void say_rules_not_written(const std::string &map);

/**
 * Warns about a rule image beside a map that was just written without it: it is of an earlier map,
 * and would be taken for this one's.
 * @outputs: what was written, the map first
 */
void warn_of_older_rules(const std::vector<Output> &outputs);

/** Whether both lead to one file, by whatever names and links; also one that is not there yet. */
[[nodiscard]] bool is_same_file(const std::string &one, const std::string &other);

} // namespace vexil_tool
