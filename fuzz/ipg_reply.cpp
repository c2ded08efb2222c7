// The IPG YLR reply path: received text fed to the reply cache in arbitrary pieces, each completed line classified
// and parsed as the laser classes do (status word, parameters, numbers, reading values), and parsed numbers fed
// back to the setters' range checks.
#include <cstdint>
#include <string>

#include "FuzzInput.h"
#include "ipg/IpgYlrProtocol.h"

namespace ipg = devlaser::ipg;

namespace {

void ParseLine(const std::string& line) {
  ipg::ShowCR(line);
  const std::string param = ipg::ExtractParam(line);
  switch (ipg::ClassifyLine(line)) {
    case ipg::ELineKind::Status: {
      auto status = ipg::ParseStatusLine(line);
      if (status) {
        ipg::MaskedStatus(*status, ipg::kYlrAlarmMask);
        for (int32_t bit : ipg::YlrAlarmTable().Bits())
          if (ipg::StatusBit(*status, bit)) ipg::YlrAlarmTable().Text(bit);
        ipg::StatusBit(*status, -31);
      }
      break;
    }
    case ipg::ELineKind::DiodeCurrent:
      if (auto v = ipg::ParseDouble(param); v && ipg::DiodeCurrentValid(*v)) ipg::DiodeCurrentCmd(*v);
      break;
    case ipg::ELineKind::PulseRate:
      if (auto v = ipg::ParseInt64(param)) ipg::PulseRateCmd(static_cast<int32_t>(*v));
      break;
    case ipg::ELineKind::PulseWidth:
      if (auto v = ipg::ParseDouble(param)) ipg::PulseWidthCmd(*v), ipg::FilterWndSzCmd(*v);
      break;
    default:
      ipg::ShortTextParam(param);
      ipg::SerialNumberParam(param);
      ipg::Terminated(param);
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::TFuzzInput in(data, size);
  ipg::TReplyCache cache;
  while (!in.Empty()) {
    // A piece length byte, then the piece: a reply may arrive one byte at a time or many lines at once.
    const size_t piece = in.Byte() % 64 + 1;
    auto result = cache.Feed(in.Text(piece));
    for (const auto& line : result.Lines) ParseLine(line);
    if (result.Overflow && !cache.Pending().empty()) __builtin_trap();  // an overflow empties the cache
    if (cache.Pending().size() > ipg::TReplyCache::kMaxCache) __builtin_trap();
  }
  return 0;
}
