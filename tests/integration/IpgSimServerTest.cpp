// The IPG YLR simulator's front ends, driven by plain POSIX clients over loopback TCP and a pseudo-terminal.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "refhost/transport/UniqueFd.h"
#include "sim/ipg/IpgYlrEngine.h"
#include "sim/ipg/IpgYlrStatus.h"
#include "sim/ipg/IpgYlrTcpServer.h"

namespace lasersim {
namespace {

using namespace std::chrono_literals;

// `receiveBuffer` > 0 shrinks the client's receive window, so that a server whose replies go unread soon blocks.
TUniqueFd Connect(const char* address, uint16_t port, int receiveBuffer = 0) {
  TUniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (receiveBuffer > 0) ::setsockopt(fd.Get(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
  sockaddr_in remote{};
  remote.sin_family = AF_INET;
  remote.sin_port = htons(port);
  ::inet_pton(AF_INET, address, &remote.sin_addr);
  if (::connect(fd.Get(), reinterpret_cast<const sockaddr*>(&remote), sizeof remote) != 0) fd.Reset();
  return fd;
}

void SendText(int fd, const std::string& text) {
  ASSERT_EQ(::write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size())) << std::strerror(errno);
}

// Reads until `lines` line ends have arrived, the peer closes, or the time-out passes.
std::string ReadLines(int fd, int lines, char end = '\r', std::chrono::milliseconds timeout = 5s) {
  std::string text;
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (std::count(text.begin(), text.end(), end) < lines) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd pfd{fd, POLLIN, 0};
    char buffer[256];
    if (left.count() <= 0 || ::poll(&pfd, 1, static_cast<int>(left.count())) <= 0) break;
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n <= 0) break;
    text.append(buffer, static_cast<size_t>(n));
  }
  return text;
}

TEST(IpgSimTcpServer, ServesSeveralClientsAtOnceEachWithItsOwnCommandFraming) {
  TIpgYlrEngine engine;
  TIpgYlrTcpServer server(engine);
  ASSERT_TRUE(server.Start("127.0.0.32", 0)) << server.LastError();

  TUniqueFd first = Connect("127.0.0.32", server.Port());
  ASSERT_TRUE(first.Valid());
  SendText(first.Get(), "ABN\rSDC 9");  // a command still unfinished while others talk
  EXPECT_EQ(ReadLines(first.Get(), 1), "ABN\r");

  // A reachability probe: connects and closes at once. The first client's connection and its half command stay.
  TUniqueFd probe = Connect("127.0.0.32", server.Port());
  ASSERT_TRUE(probe.Valid());
  probe.Reset();

  TUniqueFd second = Connect("127.0.0.32", server.Port());
  ASSERT_TRUE(second.Valid());
  SendText(second.Get(), "0\rRCS\r");
  EXPECT_EQ(ReadLines(second.Get(), 2), "BCMD\rRCS: 0.0\r");
  SendText(first.Get(), "\rRCS\r");
  EXPECT_EQ(ReadLines(first.Get(), 2), "SDC: 9.0\rRCS: 9.0\r");
  EXPECT_EQ(server.AcceptedConnections(), 3u);

  // Both clients share the one laser.
  SendText(second.Get(), "STA\r");
  EXPECT_EQ(ReadLines(second.Get(), 1), "STA: " + std::to_string(ipgylr::kAimingBeam) + "\r");
}

TEST(IpgSimTcpServer, StopsAtOnceWhileAClientFloodsCommandsWithoutReading) {
  TIpgYlrEngine engine;
  TIpgYlrTcpServer server(engine);
  ASSERT_TRUE(server.Start("127.0.0.33", 0)) << server.LastError();
  TUniqueFd client = Connect("127.0.0.33", server.Port(), 4096);
  ASSERT_TRUE(client.Valid());
  ::fcntl(client.Get(), F_SETFL, ::fcntl(client.Get(), F_GETFL) | O_NONBLOCK);

  // Send until the server stops taking commands: its replies go unread, so it ends up waiting for room to write.
  std::string commands;
  for (int i = 0; i < 1000; ++i) commands += "RFV\r";
  bool serverBlocked = false;
  const auto giveUp = std::chrono::steady_clock::now() + 60s;
  while (!serverBlocked && std::chrono::steady_clock::now() < giveUp) {
    if (::send(client.Get(), commands.data(), commands.size(), MSG_NOSIGNAL) > 0) continue;
    const size_t before = engine.Log().Received();
    pollfd pfd{client.Get(), POLLOUT, 0};
    serverBlocked = ::poll(&pfd, 1, 200) == 0 && engine.Log().Received() == before;
  }
  ASSERT_TRUE(serverBlocked);
  server.Stop();  // must return although the serving thread is waiting to write
  EXPECT_FALSE(server.Running());
}

TEST(IpgSimProgram, ServesTheGivenAlarmWordAndEndsCleanlyOnSigterm) {
  int output[2];
  ASSERT_EQ(::pipe2(output, O_CLOEXEC), 0);
  TUniqueFd readEnd(output[0]);
  TUniqueFd writeEnd(output[1]);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, writeEnd.Get(), STDOUT_FILENO);
  const std::string program = std::string(DEVLASER_BIN_DIR) + "/ipgsim";
  std::vector<std::string> args = {program, "--tcp", "127.0.0.34:10001", "--status", "0x80000002"};
  std::vector<char*> argv;
  for (auto& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  const int spawned = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ASSERT_EQ(spawned, 0) << std::strerror(spawned);
  writeEnd.Reset();

  // The program says where it listens once it does.
  EXPECT_EQ(ReadLines(readEnd.Get(), 1, '\n', 20s), "ipgsim: listening on 127.0.0.34:10001\n");

  TUniqueFd client = Connect("127.0.0.34", 10001);
  EXPECT_TRUE(client.Valid());
  if (client.Valid()) {
    SendText(client.Get(), "STA\rEMON\r");
    EXPECT_EQ(ReadLines(client.Get(), 2), "STA: 2147483650\rERR: Emission blocked by alarm\r");
  }

  ::kill(pid, SIGTERM);
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

}  // namespace
}  // namespace lasersim
