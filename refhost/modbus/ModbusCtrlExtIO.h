// The IO extension on a Modbus TCP IO module. Like a PLC's IO scan, one thread per module keeps an image: the
// host's writes land in the image and reach the module within one scan, reads answer from the last scan, so no
// host call ever waits on the network.
//
// Safe state: every (re)connection first switches every mapped output off on the module. When the module stops
// answering, the operator is told once, the image's outputs read as off, writes are not kept for later, and
// reconnection is retried with a back-off that a stop cuts short; after the module answers again nothing is
// re-applied: an output comes on again only when the laser or the host writes it. Stop() (and the destructor)
// switches every mapped output off before it closes the link.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "host/CtrlExtIO.h"
#include "refhost/MessageSink.h"
#include "refhost/modbus/ModbusMap.h"

namespace refhost {

struct TModbusIOOptions {
  std::string Host;
  int Port = 502;
  int Unit = 1;
  TModbusMap Map = TModbusMap::Default();
  std::chrono::milliseconds ScanPeriod{10};
  // How long one request (and a connection attempt) may take before the module counts as gone.
  std::chrono::milliseconds ResponseTimeout{500};
  // Reconnection back-off: doubles from the first to the longest wait.
  std::chrono::milliseconds RetryFirst{100};
  std::chrono::milliseconds RetryLongest{5000};

  // "127.0.0.5:1502 unit 1": how messages name the module.
  std::string Address() const;
};

class TModbusCtrlExtIO : public nchost::ICtrlExtIO {
 public:
  // Operator messages and log lines (category "IO") go to `sink`; nothing touches the network yet.
  TModbusCtrlExtIO(TModbusIOOptions options, std::shared_ptr<TMessageSink> sink);
  // Stop().
  ~TModbusCtrlExtIO() override;
  TModbusCtrlExtIO(const TModbusCtrlExtIO&) = delete;
  TModbusCtrlExtIO& operator=(const TModbusCtrlExtIO&) = delete;

  // Connects on the calling thread, switches the mapped outputs off and reads the inputs once, so that the image
  // is the module's before a laser looks at it. False with `error` when the module does not answer within the
  // response time-out. Call before Start().
  bool Connect(std::string& error);
  // Starts the scan thread ("ModbusScan"); it connects by itself when Connect() was not called or failed.
  void Start();
  // Switches every mapped output off, closes the link and joins the scan thread. Later writes are ignored.
  void Stop();

  // True while the link to the module is up.
  bool Connected() const;
  const TModbusIOOptions& Options() const;

  // Prints every write of the host as an information log line ("SetOutputbit: 5, True"); null stops printing.
  void SetPrintSink(std::shared_ptr<TMessageSink> sink, std::string category = "IO");

  // ICtrlExtIO: answers from the image at once.
  bool GetOutPortExist(uint8_t port) override;
  bool GetOutputBit(uint8_t port) override;
  void SetOutputbit(uint8_t port, bool value) override;
  void CloseAllOutports() override;
  bool GetInPortExist(uint8_t port) override;
  bool GetInputBit(uint8_t port) override;
  bool GetPwmPortExist(uint8_t port) override;
  bool GetPwmEn(uint8_t port) override;
  double GetPwmFreq(uint8_t port) override;
  double GetPwmRatio(uint8_t port) override;
  void SetPwmEn(uint8_t port, bool value) override;
  void SetPwmFreq(uint8_t port, double value) override;
  void SetPwmRatio(uint8_t port, double value) override;
  bool GetDAPortExist(uint8_t port) override;
  double GetDAValue(uint8_t port) override;
  void SetDAValue(uint8_t port, double value) override;
  bool GetADPortExist(uint8_t port) override;
  double GetADValue(uint8_t port) override;

 private:
  class TImpl;
  const std::unique_ptr<TImpl> FImpl;
};

}  // namespace refhost
