// SPDX-License-Identifier: MIT
//
// A folder for one test, and the tool to run in it.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/tool/process.h"

namespace vexil_test {

using Json = nlohmann::ordered_json;

inline const std::string kExamples = VEXIL_EXAMPLES;
inline const std::string kTv = kExamples + "/tv";
inline const std::string kCustomer = kExamples + "/customer";

std::string read_text(const std::string &path);
Json read_json(const std::string &path);
/** The lines of a text, without their newlines. */
std::vector<std::string> lines_of(const std::string &text);

/** "m" and 7 as "m7". */
std::string numbered(std::string name, size_t number);

/** 65535 as "65,535". */
std::string grouped(size_t number);

class ToolTest : public testing::Test {
protected:
	ToolTest();
	~ToolTest() override;

	/** A path in the test's folder. */
	[[nodiscard]] std::string path(const std::string &name) const
	{
		return folder_ + "/" + name;
	}
	/** Writes a file in the test's folder and returns its path. */
	std::string write(const std::string &name, const std::string &text) const;
	/** Names in the test's folder, sorted. */
	[[nodiscard]] std::vector<std::string> names() const;

	/** Runs the tool in the test's folder. */
	ProcessResult vexil(std::vector<std::string> arguments, ProcessSetup setup = {}) const;
	/** Runs it and expects an exit code and nothing on standard error. */
	std::string vexil_quiet(const std::vector<std::string> &arguments) const;
	/** Runs it with --json and expects success and silence. */
	Json vexil_json(std::vector<std::string> arguments) const;
	/** Expects a code, no output and exactly this one line on standard error. */
	void expect_refusal(const std::vector<std::string> &arguments, int code,
			    const std::string &line) const;

	/** Builds a product into the test's folder, expecting no warning, and returns the image's
	 * path. */
	std::string build(const std::string &product, const std::string &name) const;
	/** The example television's image, as bytes. */
	static const std::string &tv_image();

private:
	std::string folder_;
};

} // namespace vexil_test
