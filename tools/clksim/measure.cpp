#include "measure.hpp"

#include <fmt/format.h>

#include <array>
#include <nlohmann/json.hpp>

#include "fwmsim/engine/engine.hpp"

namespace clksim {

namespace {

namespace ts = fwmsim::ts;
namespace dly = fwmsim::dly;
namespace stat = fwmsim::stat;

// The service hands engine word kEngineWordOf[i] over as reply word 1 + i.
constexpr std::array<size_t, 16> kEngineWordOf = {0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, 6, 7, 14, 15};
constexpr size_t kFirstStatWord = 5;  // reply word 0 is engine word 5

FieldValue number(const char *name, int64_t v) { return {name, std::to_string(v), std::to_string(v)}; }

// A time whose words the engine could not have written (seconds wider than
// 48 bits, nanoseconds past a second) is shown as its words and named in
// `invalid`, never folded into a plausible time.
FieldValue timeAt(const char *name, const std::array<uint32_t, 16> &w, size_t at, std::vector<std::string> &invalid) {
  const fwmsim::EngineTime t = fwmsim::timeAt(w.data(), at);
  std::string text = fmt::format("{}.{:09}", t.seconds, t.nanoseconds);
  if (w[at] > 0xFFFFu || t.nanoseconds >= 1'000'000'000u) {
    text = fmt::format("{:#x}:{:#x}.{}", w[at], w[at + 1], t.nanoseconds);
    if (w[at] > 0xFFFFu) invalid.push_back(fmt::format("{} seconds-high word {:#x} wider than 16 bits", name, w[at]));
    if (t.nanoseconds >= 1'000'000'000u)
      invalid.push_back(fmt::format("{} nanoseconds {} not below 10^9", name, t.nanoseconds));
  }
  return {name, text, fmt::format("\"{}\"", text)};
}

FieldValue flags(const char *name, uint32_t f, std::vector<std::string> &invalid) {
  std::string s = f & ts::kFlagValid ? "valid" : "none";
  if (f & ts::kFlagTwoStep) s += ",two-step";
  if (f & ts::kFlagHardware) s += ",hardware";
  constexpr uint32_t kKnown = ts::kFlagValid | ts::kFlagTwoStep | ts::kFlagHardware;
  if (f & ~kKnown) {
    s += fmt::format(",unknown {:#x}", f & ~kKnown);
    invalid.push_back(fmt::format("{} has unknown bits {:#x}", name, f & ~kKnown));
  }
  return {name, s, fmt::format("\"{}\"", s)};
}

std::vector<FieldValue> withInvalid(std::vector<FieldValue> out, const std::vector<std::string> &invalid) {
  if (invalid.empty()) return out;
  std::string text = fmt::format("{}", fmt::join(invalid, "; "));
  out.push_back({"invalid", text, nlohmann::json(text).dump()});
  return out;
}

std::vector<FieldValue> timestamps(const std::vector<uint32_t> &reply) {
  std::array<uint32_t, 16> w{};
  for (size_t i = 0; i < w.size(); ++i) w[kEngineWordOf[i]] = reply[1 + i];
  std::vector<std::string> bad;
  std::vector<FieldValue> out = {timeAt("t1", w, ts::kT1, bad),        timeAt("t2", w, ts::kT2, bad),
                                 number("syncSeq", w[ts::kSyncSeq]),   flags("syncFlags", w[ts::kSyncFlags], bad),
                                 timeAt("t3", w, ts::kT3, bad),        timeAt("t4", w, ts::kT4, bad),
                                 number("delaySeq", w[ts::kDelaySeq]), flags("delayFlags", w[ts::kDelayFlags], bad)};
  for (size_t seq : {ts::kSyncSeq, ts::kDelaySeq})
    if (w[seq] > 0xFFFFu) bad.push_back(fmt::format("sequence id {:#x} wider than 16 bits", w[seq]));
  return withInvalid(std::move(out), bad);
}

std::vector<FieldValue> delay(const std::vector<uint32_t> &w) {
  std::vector<std::string> bad;
  const auto min = static_cast<int32_t>(w[dly::kMin]), max = static_cast<int32_t>(w[dly::kMax]);
  if (w[dly::kCount] == 0 && (w[dly::kLastHigh] | w[dly::kLastLow] | w[dly::kMin] | w[dly::kMax]) != 0)
    bad.push_back("no samples, yet the record holds differences");
  if (w[dly::kCount] != 0 && min > max) bad.push_back("minimum above maximum");
  if (w[dly::kSequence] > 0xFFFFu)
    bad.push_back(fmt::format("sequence id {:#x} wider than 16 bits", w[dly::kSequence]));
  return withInvalid({number("samples", w[dly::kCount]), number("lastNs", fwmsim::lastDelay(w.data())),
                      number("minNs", min), number("maxNs", max), number("seq", w[dly::kSequence])},
                     bad);
}

std::vector<FieldValue> counters(const std::vector<uint32_t> &reply) {
  static constexpr std::pair<size_t, const char *> kNames[] = {{stat::kAnnTx, "announceTx"},
                                                               {stat::kAnnRx, "announceRx"},
                                                               {stat::kSyncTx, "syncTx"},
                                                               {stat::kSyncRx, "syncRx"},
                                                               {stat::kFollowUpTx, "followUpTx"},
                                                               {stat::kFollowUpRx, "followUpRx"},
                                                               {stat::kDelayReqTx, "delayReqTx"},
                                                               {stat::kDelayReqRx, "delayReqRx"},
                                                               {stat::kDelayRespTx, "delayRespTx"},
                                                               {stat::kDelayRespRx, "delayRespRx"},
                                                               {stat::kPdelayReqRx, "pdelayReqRx"},
                                                               {stat::kPdelayRespTx, "pdelayRespTx"},
                                                               {stat::kPdelayRespFollowUpTx, "pdelayRespFollowUpTx"},
                                                               {stat::kMalformed, "droppedMalformed"},
                                                               {stat::kForeign, "droppedForeign"},
                                                               {stat::kBadSequence, "droppedSequence"},
                                                               {stat::kFollowUpNoSync, "droppedFollowUpNoSync"},
                                                               {stat::kOtherRequester, "droppedOtherPort"},
                                                               {stat::kTxFailed, "txFailed"},
                                                               {stat::kNoTimestamp, "noTimestamp"}};
  std::vector<FieldValue> out;
  for (auto [word, name] : kNames)
    if (uint32_t v = reply[word - kFirstStatWord]; v != 0) out.push_back(number(name, v));
  return out;
}

}  // namespace

std::vector<FieldValue> decodeMeasurement(std::string_view step, const std::vector<uint32_t> &reply) {
  if (step == "get_ptp_timestamp" && reply.size() == 17) return timestamps(reply);
  if ((step == "get_ptp_t2_sub_t1" || step == "get_ptp_t4_sub_t3") && reply.size() == 6) return delay(reply);
  if (step == "get_ptp_pkt_stat" && reply.size() == 24) return counters(reply);
  return {};
}

}  // namespace clksim
