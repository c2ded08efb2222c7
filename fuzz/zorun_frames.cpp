// Own-brand frame building and reply decoding on templates the description loader never sees: any indices,
// lengths and ranges, command texts in either encoding, and received bytes searched with an alarm pattern.
#include <cstdint>
#include <string>

#include "FuzzInput.h"
#include "zorun/ZorunProtocol.h"

namespace zorun = devlaser::zorun;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::TFuzzInput in(data, size);
  zorun::TCommandData cmd;
  cmd.FCmdType = static_cast<zorun::TCmdType>(in.Byte() % zorun::kCmdTypeCount);
  cmd.FInsertIdx = in.Value<int8_t>();
  cmd.FParamLen = in.Value<int8_t>();
  cmd.FTotalLen = in.Value<int8_t>();
  cmd.FParamMin = in.Value<int32_t>();
  cmd.FParamMax = in.Value<int32_t>();
  cmd.FCmdNeedCheck = in.Byte() & 1;
  cmd.FCheckBeginIdx = in.Value<int8_t>();
  cmd.FCheckEndIdx = in.Value<int8_t>();
  const double value = in.Value<double>();
  const auto encoding = static_cast<zorun::TEncoding>(in.Byte() % 3);
  const size_t cmdLen = in.Byte();
  std::string error;
  if (auto bytes = zorun::TextToBytes(in.Text(cmdLen), encoding, error)) cmd.FCmdData = *bytes;

  zorun::WorkingLength(cmd);
  zorun::TemplateProblem(cmd);
  auto frame = zorun::BuildFrame(cmd, value);
  // A checked frame carries the CRC of its check range right after the range.
  if (frame && cmd.FCmdNeedCheck) {
    const size_t end = static_cast<size_t>(cmd.FCheckEndIdx) + 1;
    if (frame->size() < end + 2) __builtin_trap();
    const uint16_t crc = zorun::Crc16Modbus(frame->data() + cmd.FCheckBeginIdx, end - cmd.FCheckBeginIdx);
    if ((*frame)[end] != (crc & 0xFF) || (*frame)[end + 1] != (crc >> 8)) __builtin_trap();
  }

  zorun::TReplyData reply;
  reply.FReplyFlagIdx = in.Value<int8_t>();
  const size_t replyLen = in.Byte();
  if (auto bytes = zorun::TextToBytes(in.Text(replyLen), zorun::TEncoding::Hex, error)) reply.FReplyData = *bytes;
  const std::string_view rest = in.Rest();
  zorun::FindAlarmCode(reply, zorun::TBytes(rest.begin(), rest.end()));
  zorun::HexText(reply.FReplyData);
  return 0;
}
