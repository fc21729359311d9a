// SPDX-License-Identifier: MIT
#include "tests/tool/process.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vexil_test {

namespace {

constexpr auto kLimit = std::chrono::minutes(4);

void check(bool done, const char *what)
{
	if (!done)
		throw std::runtime_error(what);
}

struct Channel {
	int ours = -1;
	int theirs = -1;
	std::string *text = nullptr;
};

Channel make_pipe(std::string *text)
{
	int ends[2];
	check(pipe2(ends, O_CLOEXEC) == 0, "pipe2");
	return {ends[0], ends[1], text};
}

Channel make_terminal(std::string *text)
{
	Channel channel;
	check(openpty(&channel.ours, &channel.theirs, nullptr, nullptr, nullptr) == 0, "openpty");
	fcntl(channel.ours, F_SETFD, FD_CLOEXEC);
	fcntl(channel.theirs, F_SETFD, FD_CLOEXEC);
	channel.text = text;
	return channel;
}

[[noreturn]] void become(const std::vector<std::string> &command, const ProcessSetup &setup,
			 int out, int err)
{
	std::vector<char *> arguments;
	for (const std::string &argument : command)
		arguments.push_back(const_cast<char *>(argument.c_str()));
	arguments.push_back(nullptr);
	const int in = open("/dev/null", O_RDONLY);
	if (!setup.output_to.empty())
		out = open(setup.output_to.c_str(), O_WRONLY);
	const bool ready = dup2(in, STDIN_FILENO) >= 0 && dup2(out, STDOUT_FILENO) >= 0 &&
			   dup2(err, STDERR_FILENO) >= 0 &&
			   (setup.folder.empty() || chdir(setup.folder.c_str()) == 0);
	if (setup.largest_file) {
		const rlimit limit{setup.largest_file, setup.largest_file};
		setrlimit(RLIMIT_FSIZE, &limit);
	}
	if (ready)
		execv(arguments[0], arguments.data());
	_exit(127);
}

/** Reads both channels until they close; false when the time is over. */
bool drain(Channel (&channels)[2])
{
	const auto end = std::chrono::steady_clock::now() + kLimit;
	for (;;) {
		pollfd waiting[2];
		int open_channels = 0;
		for (int i = 0; i < 2; ++i) {
			waiting[i] = {channels[i].ours, POLLIN, 0}; // a negative one is passed over
			open_channels += channels[i].ours >= 0;
		}
		if (open_channels == 0)
			return true;
		const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
			end - std::chrono::steady_clock::now());
		if (left.count() <= 0)
			return false;
		if (poll(waiting, 2, static_cast<int>(left.count())) <= 0)
			continue;
		for (int i = 0; i < 2; ++i) {
			if (waiting[i].fd < 0 || waiting[i].revents == 0)
				continue;
			char buffer[65536];
			const ssize_t count = read(waiting[i].fd, buffer, sizeof buffer);
			if (count > 0) {
				channels[i].text->append(buffer, static_cast<size_t>(count));
			} else if (count == 0 ||
				   errno != EINTR) { // a closed terminal reads as an error
				close(waiting[i].fd);
				channels[i].ours = -1;
			}
		}
	}
}

} // namespace

ProcessResult run_process(const std::vector<std::string> &command, const ProcessSetup &setup)
{
	ProcessResult result;
	Channel channels[2] = {make_pipe(&result.out), setup.error_is_terminal
							       ? make_terminal(&result.err)
							       : make_pipe(&result.err)};
	const pid_t child = fork();
	check(child >= 0, "fork");
	if (child == 0)
		become(command, setup, channels[0].theirs, channels[1].theirs);
	for (Channel &channel : channels)
		close(channel.theirs);
	if (setup.started)
		setup.started(child);
	if (!drain(channels)) {
		result.timed_out = true;
		kill(child, SIGKILL);
	}
	for (Channel &channel : channels) {
		if (channel.ours >= 0)
			close(channel.ours);
	}
	int status = 0;
	check(waitpid(child, &status, 0) == child, "waitpid");
	if (WIFEXITED(status))
		result.exit_code = WEXITSTATUS(status);
	if (WIFSIGNALED(status))
		result.signal = WTERMSIG(status);
	return result;
}

} // namespace vexil_test
