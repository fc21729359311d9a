// SPDX-License-Identifier: MIT
#include "tests/tool/fixture.h"

namespace {

using namespace vexil_test;

class ToolJsonFault : public ToolTest {
protected:
	/** Builds from @text as a hardware list and expects this refusal behind the file's name. */
	void expect_fault(const std::string &text, const std::string &fault) const
	{
		SCOPED_TRACE(text.substr(0, 100));
		write("hw.json", text);
		expect_refusal({"build", "-o", "out.pim", "--hw", "hw.json"}, 1,
			       "vexil: hw.json" + fault);
		EXPECT_EQ(names(), std::vector<std::string>{"hw.json"});
	}
};

struct FaultCase {
	std::string text;
	std::string fault;
};

TEST_F(ToolJsonFault, NumbersOutsideTheIntegerModelAreNamed)
{
	const std::string digits64(64, '1');
	const std::vector<FaultCase> cases = {
		{"{\"a\": 1.5}", ":1:8: the number has a fraction; numbers are integers"},
		{"{\"a\":\n  -1.5}", ":2:5: the number has a fraction; numbers are integers"},
		{"{\"a\": 1e3}", ":1:7: '1e3' has an exponent; numbers are integers"},
		{"{\"a\": 2E5}", ":1:7: '2E5' has an exponent; numbers are integers"},
		{"{\"a\": 1e+3}", ":1:7: '1e+3' is not a number"},
		{"{\"a\": 09}", ":1:7: '09' is not a number: a leading 0 makes it octal"},
		{"{\"a\": -08}", ":1:7: '-08' is not a number: a leading 0 makes it octal"},
		{"{\"a\": 0x}", ":1:7: '0x' is not a number: digits are missing"},
		{"{\"a\": 12ab}", ":1:7: '12ab' is not a number; hexadecimal ones begin with 0x"},
		{"{\"a\": -}", ":1:7: '-' is not a number: digits are missing"},
		{"{\"a\": +-1}", ":1:7: '+-1' is not a number"},
		{"{\"a\": 9223372036854775808}",
		 ":1:7: '9223372036854775808' is too large: numbers have 64 bits and a sign"},
		{"{\"a\": -9223372036854775809}",
		 ":1:7: '-9223372036854775809' is too large: numbers have 64 bits and a sign"},
		{"{\"a\": 0xFFFFFFFFFFFFFFFF}",
		 ":1:7: '0xFFFFFFFFFFFFFFFF' is too large: numbers have 64 bits and a sign"},
		{"{\"a\": " + digits64 + "}",
		 ":1:7: '" + digits64.substr(1) + "' is longer than 63 characters"},
		{"{\"a\": " + std::string(63, '0') + "1}",
		 ":1:70: the number is longer than 63 characters"},
	};
	for (const FaultCase &fault : cases)
		expect_fault(fault.text, fault.fault);
}

TEST_F(ToolJsonFault, NumbersOfTheIntegerModelAreAccepted)
{
	for (const std::string number : {"0x1F", "0X1f", "+5", "-5", "010", "9223372036854775807",
					 "-9223372036854775808", "\"0x10\""}) {
		SCOPED_TRACE(number);
		write("sw.json", "{\"PqSWRegList\": {\"register\": [{\"A\": " + number + "}]}}");
		vexil_quiet({"build", "-o", "out.pim", "--sw", "sw.json"});
	}
}

TEST_F(ToolJsonFault, PunctuationIsNamedWhereItIsWrong)
{
	const std::vector<FaultCase> cases = {
		{"{\"a\": 1,}", ":1:9: a comma stands before this '}'"},
		{"{\"a\": [1,]}", ":1:10: a comma stands before this ']'"},
		{"{\"a\": 1 \"b\": 2}", ":1:9: ',' or '}' is expected, not '\"'"},
		{"{\"a\": [1 2]}", ":1:10: ',' or ']' is expected, not '2'"},
		{"{\"a\" 1}", ":1:6: ':' is expected behind a name, not '1'"},
		{"{\"a\"}", ":1:5: ':' is expected behind a name, not '}'"},
		{"{a: 1}", ":1:2: a member's name in quotes is expected, not 'a'"},
		{"{\n\t'a': 1}", ":2:2: a member's name in quotes is expected, not '''"},
		{"{,}", ":1:2: a member's name in quotes is expected, not ','"},
		{"{\"a\": }", ":1:7: a value is expected, not '}'"},
		{"{\"a\": tru}", ":1:7: a value is expected, not 't'"},
		{"{\"a\": .5}", ":1:7: a value is expected, not '.'"},
		{"{\"a\": ,}", ":1:7: a value is expected, not ','"},
		{"{\"a\": [,]}", ":1:8: a value is expected, not ','"},
		{"{\"a\": 1]", ":1:8: ',' or '}' is expected, not ']'"},
		{"{\"a\": {}x}", ":1:9: ',' or '}' is expected, not 'x'"},
		{"}", ":1:1: a value is expected, not '}'"},
		{"# list", ":1:1: a value is expected, not '#'"},
		{"// list\n{}", ":1:1: a value is expected, not '/'"},
	};
	for (const FaultCase &fault : cases)
		expect_fault(fault.text, fault.fault);
}

TEST_F(ToolJsonFault, TextThatEndsEarlyIsNamedAtItsEnd)
{
	const std::vector<FaultCase> cases = {
		{"{", ":1:2: the text ends inside an object"},
		{"{\n", ":2:1: the text ends inside an object"},
		{"{\"a\"", ":1:5: the text ends inside an object"},
		{"{\"a\":", ":1:6: the text ends inside an object"},
		{"{\"a\": 1", ":1:8: the text ends inside an object"},
		{"{\"a\": 1,", ":1:9: the text ends inside an object"},
		{"{\"a\": 1,  ", ":1:11: the text ends inside an object"},
		{"{\"a\": [", ":1:8: the text ends inside an array"},
		{"{\"a\": [1,\n", ":2:1: the text ends inside an array"},
		{" \n ", ":2:2: there is no JSON in it"},
		{"\xEF\xBB\xBF", ":1:1: there is no JSON in it"},
	};
	for (const FaultCase &fault : cases)
		expect_fault(fault.text, fault.fault);
}

TEST_F(ToolJsonFault, TextsInQuotesAreNamedWhereTheyBreak)
{
	const std::vector<FaultCase> cases = {
		{"{\"a", ":1:2: the text that begins here is not closed by a quote"},
		{"{\"a\": \"b}\n", ":1:7: the text that begins here is not closed by a quote"},
		{"{\"a\": \"b\\\"}\n", ":1:7: the text that begins here is not closed by a quote"},
		{"{\"a\": \"\\q\"}", ":1:8: '\\q' is no escape of JSON"},
		{"{\"a\": \"b\\\x1b\"}", ":1:9: '\\\\x1b' is no escape of JSON"},
		{"{\"\\q\": 1}", ":1:3: '\\q' is no escape of JSON"},
		{"{\"a\": \"\\ud800\"}", ":1:8: this \\u escape is no character"},
		{"{\"a\": \"bc\\udc00\"}", ":1:10: this \\u escape is no character"},
	};
	for (const FaultCase &fault : cases)
		expect_fault(fault.text, fault.fault);
}

TEST_F(ToolJsonFault, ColumnsCountCharactersAndLeaveOutTheByteOrderMark)
{
	expect_fault("{\"\xC3\xA4\xE2\x82\xAC\": x}", ":1:8: a value is expected, not 'x'");
	expect_fault("\xEF\xBB\xBF{\"a\": x}", ":1:7: a value is expected, not 'x'");
	expect_fault("{\r\n\"a\": x}", ":2:6: a value is expected, not 'x'");
	expect_fault("{\"a\": \xC3\xA4}", ":1:7: a value is expected, not '\xC3\xA4'");
	expect_fault("{\"a\": \xFF}", ":1:7: a value is expected, not '\\xff'");
}

TEST_F(ToolJsonFault, ByteOrderMarkIsAccepted)
{
	write("hw.json", "\xEF\xBB\xBF{\"PqHWRegList\": {\"register\": [{\"A\": 1}]}}");
	vexil_quiet({"build", "-o", "out.pim", "--hw", "hw.json"});
}

TEST_F(ToolJsonFault, FortyNineLevelsAreTooDeep)
{
	const auto nested = [](size_t levels) {
		return "{\"a\": " + std::string(levels - 1, '[') + std::string(levels - 1, ']') +
		       "}";
	};
	expect_fault(nested(49), ":1:54: nested deeper than 48");
	std::string objects;
	for (int level = 0; level < 49; ++level)
		objects += "{\"a\":\n";
	expect_fault(objects, ":49:1: nested deeper than 48");
	write("hw.json", nested(48));
	EXPECT_EQ(vexil({"build", "-o", "/dev/null", "--hw", "hw.json", "--keep-going"}).exit_code,
		  0);
	// A hundred thousand levels neither exhaust the stack nor take long.
	expect_fault(std::string(100000, '['), ":1:49: nested deeper than 48");
}

TEST_F(ToolJsonFault, NulByteIsNamed)
{
	expect_fault(std::string("{\"a\": 1,\n \"b\0c\": 2}", 20),
		     ":2:4: there is a NUL byte in the text");
	expect_fault(std::string("\0", 1), ":1:1: there is a NUL byte in the text");
	expect_fault(std::string("{}\0", 3), ":1:3: there is a NUL byte in the text");
}

TEST_F(ToolJsonFault, OtherEncodingsAreNamed)
{
	expect_fault(std::string("\xFF\xFE{\0}\0", 6), ": is UTF-16 text; JSON must be UTF-8");
	expect_fault(std::string("\xFE\xFF\0{\0}", 6), ": is UTF-16 text; JSON must be UTF-8");
}

TEST_F(ToolJsonFault, RootThatIsNoObjectIsRefused)
{
	expect_fault("[]", ":1:1: the document is not an object");
	expect_fault("\n  \"text\"", ":2:3: the document is not an object");
	expect_fault("1.5", ":1:1: the document is not an object");
	expect_fault("null", ":1:1: the document is not an object");
}

TEST_F(ToolJsonFault, EmptyFileIsRefused)
{
	expect_fault("", ": is empty");
}

TEST_F(ToolJsonFault, TextBehindTheDocumentIsWarnedAbout)
{
	write("hw.json", "{\"PqHWRegList\": {\"register\": []}}\n x");
	const ProcessResult result =
		vexil({"build", "-o", "out.pim", "--hw", "hw.json", "--keep-going"});
	EXPECT_EQ(result.exit_code, 0);
	EXPECT_EQ(result.err, "vexil: hw.json:2:2: warning: text after the document is not read\n");
	write("hw.json", "{\"PqHWRegList\": {\"register\": []}}\n \t\r\n");
	vexil_quiet({"build", "-o", "out.pim", "--hw", "hw.json"});
}

TEST_F(ToolJsonFault, EveryKindOfInputIsReadTheSameWay)
{
	write("bad.json", "{\n  \"a\": 09\n}");
	const std::string line =
		"vexil: bad.json:2:8: '09' is not a number: a leading 0 makes it octal";
	for (const std::string option : {"--hw", "--sw", "--cus", "--groups"})
		expect_refusal({"build", "-o", "out.pim", option, "bad.json"}, 1, line);
	expect_refusal({"build", "bad.json", "-o", "out.pim"}, 1, line);
	write("tv.pim", tv_image());
	for (const std::string option : {"--hw", "--sw", "--cus", "--reginfo", "--product"})
		expect_refusal({"load", "tv.pim", "Dimming_Level#High", option, "bad.json"}, 1,
			       line);
}

} // namespace
