#include "measure.hpp"

#include <fmt/format.h>

#include <array>

#include "fwmsim/engine/engine.hpp"

namespace clksim {

namespace {

namespace ts = fwmsim::ts;
namespace dly = fwmsim::dly;
namespace stat = fwmsim::stat;

// The service hands engine word kEngineWordOf[i] over as reply word 1 + i.
constexpr std::array<size_t, 16> kEngineWordOf = {0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, 6, 7, 14, 15};
constexpr size_t kFirstStatWord = 5;  // reply word 0 is engine word 5

std::string timeText(const fwmsim::EngineTime &t) { return fmt::format("{}.{:09}", t.seconds, t.nanoseconds); }

std::string flagsText(uint32_t f) {
  std::string s = f & ts::kFlagValid ? "valid" : "none";
  if (f & ts::kFlagTwoStep) s += ",two-step";
  if (f & ts::kFlagHardware) s += ",hardware";
  return s;
}

std::vector<FieldValue> timestamps(const std::vector<uint32_t> &reply) {
  std::array<uint32_t, 16> w{};
  for (size_t i = 0; i < w.size(); ++i) w[kEngineWordOf[i]] = reply[1 + i];
  return {{"t1", timeText(fwmsim::timeAt(w.data(), ts::kT1))}, {"t2", timeText(fwmsim::timeAt(w.data(), ts::kT2))},
          {"syncSeq", std::to_string(w[ts::kSyncSeq])},        {"syncFlags", flagsText(w[ts::kSyncFlags])},
          {"t3", timeText(fwmsim::timeAt(w.data(), ts::kT3))}, {"t4", timeText(fwmsim::timeAt(w.data(), ts::kT4))},
          {"delaySeq", std::to_string(w[ts::kDelaySeq])},      {"delayFlags", flagsText(w[ts::kDelayFlags])}};
}

std::vector<FieldValue> delay(const std::vector<uint32_t> &w) {
  return {{"samples", std::to_string(w[dly::kCount])},
          {"lastNs", std::to_string(fwmsim::lastDelay(w.data()))},
          {"minNs", std::to_string(static_cast<int32_t>(w[dly::kMin]))},
          {"maxNs", std::to_string(static_cast<int32_t>(w[dly::kMax]))},
          {"seq", std::to_string(w[dly::kSequence])}};
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
    if (uint32_t v = reply[word - kFirstStatWord]; v != 0) out.push_back({name, std::to_string(v)});
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
