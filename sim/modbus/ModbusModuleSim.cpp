#include "sim/modbus/ModbusModuleSim.h"

#include <modbus/modbus.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace lasersim {
namespace {

uint16_t Word(const uint8_t* at) { return static_cast<uint16_t>(at[0] << 8 | at[1]); }

}  // namespace

TModbusModuleSim::TModbusModuleSim(TModbusModuleSize size)
    : FTables(modbus_mapping_new(size.Coils, size.DiscreteInputs, size.HoldingRegisters, size.InputRegisters)) {}

TModbusModuleSim::~TModbusModuleSim() {
  Stop();
  modbus_mapping_free(FTables);
}

bool TModbusModuleSim::Start(const std::string& ip, int port, std::string& error) {
  if (Running()) {
    error = "the module already runs";
    return false;
  }
  if (FTables == nullptr) {
    error = "no memory for the module's tables";
    return false;
  }
  FContext = modbus_new_tcp(ip.c_str(), port);
  if (FContext == nullptr) {
    error = "cannot make a Modbus TCP context for " + ip;
    return false;
  }
  FListen = modbus_tcp_listen(FContext, 8);
  if (FListen < 0) {
    error = "cannot listen on " + ip + ":" + std::to_string(port) + ": " + modbus_strerror(errno);
    Stop();
    return false;
  }
  sockaddr_in bound{};
  socklen_t length = sizeof bound;
  if (::getsockname(FListen, reinterpret_cast<sockaddr*>(&bound), &length) == 0) FPort = ntohs(bound.sin_port);
  if (!FThread.Start(
          "ModbusModule", [this](TServiceThread& thread) { Serve(thread); }, error)) {
    Stop();
    return false;
  }
  return true;
}

void TModbusModuleSim::Stop() {
  FThread.Stop();
  if (FListen >= 0) ::close(FListen);
  FListen = -1;
  if (FContext != nullptr) {
    modbus_set_socket(FContext, -1);  // the clients' sockets are closed already
    modbus_free(FContext);
  }
  FContext = nullptr;
}

void TModbusModuleSim::ClearTables() {
  std::lock_guard lock(FMutex);
  std::fill_n(FTables->tab_bits, FTables->nb_bits, 0);
  std::fill_n(FTables->tab_input_bits, FTables->nb_input_bits, 0);
  std::fill_n(FTables->tab_registers, FTables->nb_registers, 0);
  std::fill_n(FTables->tab_input_registers, FTables->nb_input_registers, 0);
}

void TModbusModuleSim::SetReplyDelay(std::chrono::milliseconds delay) {
  std::lock_guard lock(FMutex);
  FDelay = delay;
}

void TModbusModuleSim::SetSilent(bool silent) {
  std::lock_guard lock(FMutex);
  FSilent = silent;
}

bool TModbusModuleSim::CoilLocked(uint16_t address) const {
  return address < FTables->nb_bits && FTables->tab_bits[address] != 0;
}

bool TModbusModuleSim::Coil(uint16_t address) const {
  std::lock_guard lock(FMutex);
  return CoilLocked(address);
}

uint16_t TModbusModuleSim::HoldingRegister(uint16_t address) const {
  std::lock_guard lock(FMutex);
  return address < FTables->nb_registers ? FTables->tab_registers[address] : 0;
}

void TModbusModuleSim::SetDiscreteInput(uint16_t address, bool value) {
  std::lock_guard lock(FMutex);
  if (address < FTables->nb_input_bits) FTables->tab_input_bits[address] = value ? 1 : 0;
}

void TModbusModuleSim::SetInputRegister(uint16_t address, uint16_t value) {
  std::lock_guard lock(FMutex);
  if (address < FTables->nb_input_registers) FTables->tab_input_registers[address] = value;
}

std::vector<TModbusWrite> TModbusModuleSim::Writes() const {
  std::lock_guard lock(FMutex);
  return FWrites;
}

int TModbusModuleSim::Replies() const {
  std::lock_guard lock(FMutex);
  return FReplies;
}

bool TModbusModuleSim::WaitUntil(const std::function<bool(const TModbusModuleSim&)>& holds,
                                 std::chrono::milliseconds timeout) const {
  // `holds` calls the getters, which lock: it runs unlocked, and a request answered meanwhile is not missed
  // because the wait is for the reply count to move on from the one seen before `holds` ran.
  const auto deadline = Clock::now() + timeout;
  while (true) {
    const int seen = Replies();
    if (holds(*this)) return true;
    std::unique_lock lock(FMutex);
    if (!FChanged.wait_until(lock, deadline, [&] { return FReplies != seen; })) {
      lock.unlock();
      return holds(*this);
    }
  }
}

void TModbusModuleSim::Serve(TServiceThread& thread) {
  std::vector<int> clients;
  while (!thread.StopRequested()) {
    std::vector<pollfd> fds{{thread.WakeFd(), POLLIN, 0}, {FListen, POLLIN, 0}};
    for (int client : clients) fds.push_back({client, POLLIN, 0});
    if (::poll(fds.data(), fds.size(), -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (fds[0].revents != 0) break;
    if ((fds[1].revents & POLLIN) != 0) {
      const int client = ::accept4(FListen, nullptr, nullptr, SOCK_CLOEXEC);
      if (client >= 0) clients.push_back(client);
    }
    for (size_t i = 2; i < fds.size(); ++i)
      if (fds[i].revents != 0) Answer(fds[i].fd, thread, clients);
  }
  for (int client : clients) ::close(client);
}

void TModbusModuleSim::Answer(int fd, TServiceThread& thread, std::vector<int>& clients) {
  uint8_t request[MODBUS_TCP_MAX_ADU_LENGTH];
  modbus_set_socket(FContext, fd);
  const int length = modbus_receive(FContext, request);
  if (length < 0) {  // the client went away or sent garbage
    ::close(fd);
    clients.erase(std::remove(clients.begin(), clients.end(), fd), clients.end());
    return;
  }
  std::chrono::milliseconds delay{0};
  {
    std::lock_guard lock(FMutex);
    if (FSilent || length == 0) return;
    delay = FDelay;
  }
  if (delay.count() > 0) {
    pollfd wake{thread.WakeFd(), POLLIN, 0};
    if (::poll(&wake, 1, static_cast<int>(delay.count())) > 0) return;  // stopping
  }
  {
    std::lock_guard lock(FMutex);
    if (modbus_reply(FContext, request, length, FTables) >= 0) {
      RecordWrites(request, modbus_get_header_length(FContext));
      ++FReplies;
    }
  }
  FChanged.notify_all();
}

void TModbusModuleSim::RecordWrites(const uint8_t* request, int headerLength) {
  const uint8_t* pdu = request + headerLength;
  const int unit = request[headerLength - 1];
  const uint16_t address = Word(pdu + 1);
  const auto now = Clock::now();
  const auto record = [&](refhost::TModbusTable table, int offset, uint16_t value, int size) {
    if (address + offset >= size) return;
    FWrites.push_back({now, unit, table, static_cast<uint16_t>(address + offset), value});
    if (FTrace) FTrace(FWrites.back());
  };
  switch (pdu[0]) {
    case MODBUS_FC_WRITE_SINGLE_COIL:
      record(refhost::TModbusTable::Coil, 0, Word(pdu + 3) == 0xFF00 ? 1 : 0, FTables->nb_bits);
      break;
    case MODBUS_FC_WRITE_SINGLE_REGISTER:
      record(refhost::TModbusTable::HoldingRegister, 0, Word(pdu + 3), FTables->nb_registers);
      break;
    case MODBUS_FC_WRITE_MULTIPLE_COILS:
      for (int i = 0; i < Word(pdu + 3); ++i)
        record(refhost::TModbusTable::Coil, i, (pdu[6 + i / 8] >> (i % 8)) & 1, FTables->nb_bits);
      break;
    case MODBUS_FC_WRITE_MULTIPLE_REGISTERS:
      for (int i = 0; i < Word(pdu + 3); ++i)
        record(refhost::TModbusTable::HoldingRegister, i, Word(pdu + 6 + 2 * i), FTables->nb_registers);
      break;
    default:
      break;
  }
}

}  // namespace lasersim
