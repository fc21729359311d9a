// SPDX-License-Identifier: MIT
#include <csignal>
#include <filesystem>

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/tool/fixture.h"

namespace {

using namespace vexil_test;
namespace fs = std::filesystem;

class ToolOutput : public ToolTest {
protected:
	using Names = std::vector<std::string>;
};

TEST_F(ToolOutput, FolderThatIsMissingIsAnErrorOfWriting)
{
	expect_refusal({"build", kTv, "-o", "none/tv.pim"}, 3,
		       "vexil: cannot write none/tv.pim: No such file or directory");
	EXPECT_EQ(names(), Names{});
}

TEST_F(ToolOutput, PathBelowAFileIsAnErrorOfWriting)
{
	write("file", "kept");
	expect_refusal({"build", kTv, "-o", "file/tv.pim"}, 3,
		       "vexil: cannot write file/tv.pim: Not a directory");
	write("tv.pim", tv_image());
	expect_refusal({"merge", "tv.pim", "tv.pim", "-o", "file/tv.pim"}, 3,
		       "vexil: cannot write file/tv.pim: Not a directory");
	EXPECT_EQ(read_text(path("file")), "kept");
	EXPECT_EQ(names(), (Names{"file", "tv.pim"}));
}

TEST_F(ToolOutput, FolderIsNoOutput)
{
	expect_refusal({"build", kTv, "-o", "."}, 3, "vexil: cannot write .: is a folder");
	expect_refusal({"build", kTv, "-o", "new/"}, 3,
		       "vexil: cannot write new/: is not the name of a file");
	EXPECT_EQ(names(), Names{});
}

TEST_F(ToolOutput, FullDeviceIsAnErrorOfWriting)
{
	expect_refusal({"build", kTv, "-o", "/dev/full"}, 3,
		       "vexil: cannot write /dev/full: No space left on device");
	struct stat state {};
	ASSERT_EQ(stat("/dev/full", &state), 0);
	EXPECT_TRUE(S_ISCHR(state.st_mode));
}

TEST_F(ToolOutput, DeviceIsWrittenToAndNotReplaced)
{
	EXPECT_EQ(vexil({"build", kTv, "-o", "/dev/null"}).exit_code, 0);
	struct stat state {};
	ASSERT_EQ(stat("/dev/null", &state), 0);
	EXPECT_TRUE(S_ISCHR(state.st_mode));
}

TEST_F(ToolOutput, PipeThatNobodyReadsIsAnErrorOfWriting)
{
	ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
	expect_refusal({"build", kTv, "-o", "pipe"}, 3,
		       "vexil: cannot write pipe: No such device or address");
}

TEST_F(ToolOutput, RefusedInputLeavesTheOldImageAlone)
{
	write("out.pim", "older");
	write("bad.json", "{");
	EXPECT_EQ(vexil({"build", "-o", "out.pim", "--groups", "bad.json"}).exit_code, 1);
	EXPECT_EQ(read_text(path("out.pim")), "older");
	EXPECT_EQ(names(), (Names{"bad.json", "out.pim"}));
}

TEST_F(ToolOutput, DiskThatFillsUpWhileWritingLeavesTheOldImageAlone)
{
	write("out.pim", "older");
	ProcessSetup small;
	small.largest_file = 4096;
	const ProcessResult result = vexil({"build", kTv, "-o", "out.pim"}, small);
	EXPECT_EQ(result.exit_code, 3);
	EXPECT_EQ(result.signal, 0);
	EXPECT_EQ(result.err, "vexil: cannot write out.pim: File too large\n");
	EXPECT_EQ(read_text(path("out.pim")), "older");
	EXPECT_EQ(names(), Names{"out.pim"});
}

/** Sends a signal as soon as a file appears in a folder. */
class KillWhenWriting {
public:
	KillWhenWriting(const std::string &folder, int signal)
	    : watch_(inotify_init1(IN_CLOEXEC)), signal_(signal)
	{
		EXPECT_GE(inotify_add_watch(watch_, folder.c_str(), IN_CREATE), 0);
	}
	~KillWhenWriting() { close(watch_); }

	void operator()(int process) const
	{
		char event[4096];
		EXPECT_GT(read(watch_, event, sizeof event), 0);
		kill(process, signal_);
	}

private:
	int watch_;
	int signal_;
};

TEST_F(ToolOutput, InterruptedWritingLeavesNothingHalfWritten)
{
	// Large enough that the signal comes while it is written.
	write("large.bin", std::string(size_t{32} << 20, 'x'));
	const std::vector<std::string> arguments = {"build", "-o", "out/x.pim", "--file",
						    "large.bin"};
	const size_t whole = (size_t{64} << 20) + 1024 + 104; // data grow by doubling
	int interrupted = 0;
	for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
		for (int round = 0; round < 3; ++round) {
			fs::create_directory(path("out"));
			const KillWhenWriting killer(path("out"), signal);
			ProcessSetup setup;
			setup.started = [&](int process) { killer(process); };
			const ProcessResult result = vexil(arguments, setup);
			interrupted += result.signal == signal;
			EXPECT_TRUE(result.signal == signal || result.exit_code == 0)
				<< "signal " << result.signal << " exit " << result.exit_code;
			for (const fs::directory_entry &entry :
			     fs::directory_iterator(path("out"))) {
				EXPECT_EQ(entry.path().filename(), "x.pim");
				EXPECT_EQ(entry.file_size(), whole);
			}
			fs::remove_all(path("out"));
		}
	}
	EXPECT_GT(interrupted, 0);
}

TEST_F(ToolOutput, OutputMayBeOneOfTheInputs)
{
	write("tv.pim", tv_image());
	build(kCustomer, "customer.pim");
	vexil_quiet({"merge", "tv.pim", "customer.pim", "-o", "shop.pim"});
	vexil_quiet({"merge", "tv.pim", "customer.pim", "-o", "tv.pim"});
	EXPECT_EQ(read_text(path("tv.pim")), read_text(path("shop.pim")));
	write("tv.pim", tv_image());
	EXPECT_EQ(vexil({"merge", "tv.pim", "customer.pim", "-o", "customer.pim"}).err,
		  "vexil: customer.pim: warning: customer.rule beside it is older and was not "
		  "written\n");
	EXPECT_EQ(read_text(path("customer.pim")), read_text(path("shop.pim")));
	EXPECT_EQ(names(), (Names{"customer.pim", "customer.rule", "shop.pim", "tv.pim"}));
}

TEST_F(ToolOutput, OneFileForBothImagesIsAUsageError)
{
	const std::string line = " would be both images; name one with --rules-out (see 'vexil "
				 "build --help')";
	const auto expect_same = [&](const std::string &map, const std::string &rules) {
		SCOPED_TRACE(rules);
		expect_refusal({"build", kTv, "-o", map, "--rules-out", rules}, 2,
			       "vexil: " + map + line);
	};
	expect_refusal({"build", kTv, "-o", "x.rule"}, 2, "vexil: x.rule" + line);
	fs::create_directory_symlink(".", path("here"));
	expect_same("x.pim", "x.pim");
	expect_same("x.pim", "./x.pim");
	expect_same("x.pim", path("x.pim"));
	expect_same("x.pim", "here/./here/x.pim");
	EXPECT_EQ(names(), Names{"here"});
	write("x.pim", "older");
	fs::create_symlink("x.pim", path("soft"));
	fs::create_hard_link(path("x.pim"), path("hard"));
	for (const std::string &rules : {std::string("./x.pim"), path("x.pim"), std::string("soft"),
					 std::string("here/soft"), std::string("hard")})
		expect_same("x.pim", rules);
	expect_same("soft", "x.pim");
	EXPECT_EQ(read_text(path("x.pim")), "older");
	EXPECT_EQ(names(), (Names{"hard", "here", "soft", "x.pim"}));
	// Files of one name in two folders are two files.
	fs::create_directory(path("rules"));
	vexil_quiet({"build", kTv, "-o", "x.pim", "--rules-out", "rules/x.pim"});
	EXPECT_EQ(read_text(path("x.pim")), tv_image());
}

TEST_F(ToolOutput, LinkIsFollowedAndStays)
{
	fs::create_directory(path("real"));
	write("real/tv.pim", "older");
	fs::create_symlink("real/tv.pim", path("link.pim"));
	vexil_quiet({"build", kTv, "-o", "link.pim"});
	EXPECT_TRUE(fs::is_symlink(path("link.pim")));
	EXPECT_EQ(read_text(path("real/tv.pim")), tv_image());
}

TEST_F(ToolOutput, PermissionsOfAnOlderImageStay)
{
	write("tv.pim", "older");
	fs::permissions(path("tv.pim"), fs::perms(0640));
	vexil_quiet({"build", kTv, "-o", "tv.pim"});
	EXPECT_EQ(fs::status(path("tv.pim")).permissions(), fs::perms(0640));
}

TEST_F(ToolOutput, NewImageHasTheUsualPermissions)
{
	const mode_t mask = umask(0);
	umask(mask);
	vexil_quiet({"build", kTv, "-o", "tv.pim"});
	EXPECT_EQ(fs::status(path("tv.pim")).permissions(), fs::perms(0666 & ~mask));
}

} // namespace
