// Runs laserctl as a subprocess, as a person or a script would: its arguments, its standard output and error, its
// exit status.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/ScratchDir.h"

extern char** environ;

namespace laserctltest {

struct TRunResult {
  int ExitStatus = -1;  // -1 when laserctl did not exit normally (a signal ended it)
  std::string Out, Err;
};

inline std::string BinDir() { return DEVLASER_BIN_DIR; }
inline std::string SourceDir() { return DEVLASER_SOURCE_DIR; }

// Called with the standard error read so far; returns a signal to send to laserctl, or 0.
using TSignalWhen = std::function<int(const std::string& err)>;

// Runs laserctl with `args` and waits for it to end; after a minute it is killed (and the test fails).
inline TRunResult RunLaserctl(const std::vector<std::string>& args, const TSignalWhen& signalWhen = {}) {
  TRunResult result;
  int outPipe[2], errPipe[2];  // close-on-exec: the child keeps only the copies on its stdout and stderr
  if (pipe2(outPipe, O_CLOEXEC) != 0 || pipe2(errPipe, O_CLOEXEC) != 0) {
    ADD_FAILURE() << "pipe failed";
    return result;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
  posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);
  const std::string program = BinDir() + "/laserctl";
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(outPipe[1]);
  close(errPipe[1]);
  pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
  std::string* const sinks[2] = {&result.Out, &result.Err};
  if (spawned != 0) ADD_FAILURE() << "cannot start " << program;

  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  bool signalled = false;
  while (spawned == 0 && (fds[0].fd >= 0 || fds[1].fd >= 0)) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      ADD_FAILURE() << "laserctl did not end within a minute; killed";
      kill(pid, SIGKILL);
      break;
    }
    if (poll(fds, 2, static_cast<int>(left.count())) <= 0) continue;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) continue;
      char buffer[4096];
      const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
      if (n > 0) sinks[i]->append(buffer, static_cast<size_t>(n));
      if (n <= 0) close(std::exchange(fds[i].fd, -1));
    }
    if (const int signal = signalWhen && !signalled ? signalWhen(result.Err) : 0) {
      kill(pid, signal);
      signalled = true;
    }
  }
  for (const auto& fd : fds)
    if (fd.fd >= 0) close(fd.fd);
  int status = 0;
  if (spawned == 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status)) result.ExitStatus = WEXITSTATUS(status);
  return result;
}

// Parses every line as JSON; a line that is not JSON fails the test.
inline std::vector<nlohmann::json> JsonLines(const std::string& text) {
  std::vector<nlohmann::json> objects;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    objects.push_back(nlohmann::json::parse(line, nullptr, false));
    EXPECT_FALSE(objects.back().is_discarded()) << "not a JSON line: " << line;
  }
  return objects;
}

// The information source's objects that the status command printed, in order.
inline std::vector<nlohmann::json> Statuses(const std::vector<nlohmann::json>& lines) {
  std::vector<nlohmann::json> statuses;
  for (const auto& line : lines)
    if (line.value("cmd", "") == "status") statuses.push_back(line.value("status", nlohmann::json()));
  return statuses;
}

}  // namespace laserctltest
