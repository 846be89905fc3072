// Timestamp, path-delay and packet-statistics queries: the engine's record is
// read into a zeroed buffer of the operation's own and the wanted words are
// copied to the caller's reply.
#include "fwmclk/np.h"
#include "fwmclk/platform/securec.h"
#include "fwmclk/service_ops.h"
#include "service/svc_common.hpp"

namespace {

using fwmclk::svc::checked;
using fwmclk::svc::nullRecord;
using fwmclk::svc::res;

constexpr size_t kWordSize = sizeof(uint32_t);

// Reply word 1 + i holds engine word kTimestampOrder[i]: the two records order
// their members differently.
constexpr uint32_t kTimestampWordNum = 16;
constexpr uint32_t kTimestampOrder[kTimestampWordNum] = {0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, 6, 7, 14, 15};
static_assert(sizeof(ClkNpTimestamps) == kTimestampWordNum * kWordSize, "sixteen engine timestamp words");

// A query with a read-clear flag: the NP read, the operation's name in its
// log lines, and the first engine word copied (as many as the reply holds).
template <class Engine, class Reply>
struct ReadClearQuery {
  int32_t (*read)(uint32_t unit, uint32_t port, uint32_t readClear, Engine *buf);
  const char *name;
  uint32_t firstWord;
};

constexpr ReadClearQuery<ClkNpDfxDelay, ClkPtpDfxDelay> kT2SubT1{CLK_NP_1588_GetDfxT2SubT1, "GetPtpT2SubT1", 0};
constexpr ReadClearQuery<ClkNpDfxDelay, ClkPtpDfxDelay> kT4SubT3{CLK_NP_1588_GetDfxT4SubT3, "GetPtpT4SubT3", 0};
constexpr ReadClearQuery<ClkNpPktStat, ClkPtpPktStat> kPktStat{CLK_NP_1588_GetPktstat, "GetPtpPktStat", 5};

static_assert(sizeof(ClkNpDfxDelay) == sizeof(ClkPtpDfxDelay), "delay words copied one to one");
static_assert(sizeof(ClkNpPktStat) == 37 * kWordSize, "37 engine statistics words");
static_assert(5 * kWordSize + sizeof(ClkPtpPktStat) <= sizeof(ClkNpPktStat), "statistics words 5..28");

// Read-clear 1 reads the engine and hands nothing back, so the reply is
// checked only after the read and only when it will be written.
template <const auto &Q, class Engine, class Reply>
uint32_t readClearQuery(uint32_t unit, uint32_t port, uint32_t readClear, Reply *out) {
  Engine buf;
  (void)memset_s(&buf, sizeof buf, 0, sizeof buf);
  const uint32_t r = checked(Q.name, res(Q.read(unit, port, readClear, &buf)));
  if (r != 0) return r;
  if (readClear == 1) return 0;
  if (out == nullptr) return nullRecord(Q.name);
  (void)memcpy_s(out, sizeof *out, reinterpret_cast<const uint8_t *>(&buf) + Q.firstWord * kWordSize, sizeof *out);
  return 0;
}

}  // namespace

extern "C" {

uint32_t FWM_SRV_CLK_GetPtpTimestamp(uint32_t unit, uint32_t port, ClkPtpTimestamp *out) {
  if (out == nullptr) return nullRecord("GetPtpTimestamp");
  ClkNpTimestamps buf;
  (void)memset_s(&buf, sizeof buf, 0, sizeof buf);
  const uint32_t r = checked("GetPtpTimestamp", res(CLK_NP_1588_GetTimestamp(unit, port, &buf)));
  if (r != 0) return r;
  uint32_t words[kTimestampWordNum];
  (void)memcpy_s(words, sizeof words, &buf, sizeof buf);
  for (uint32_t i = 0; i < kTimestampWordNum; ++i) out->words[1 + i] = words[kTimestampOrder[i]];
  return 0;
}

uint32_t FWM_SRV_CLK_GetPtpT2SubT1(uint32_t unit, uint32_t port, uint32_t readClear, ClkPtpDfxDelay *out) {
  return readClearQuery<kT2SubT1, ClkNpDfxDelay>(unit, port, readClear, out);
}
uint32_t FWM_SRV_CLK_GetPtpT4SubT3(uint32_t unit, uint32_t port, uint32_t readClear, ClkPtpDfxDelay *out) {
  return readClearQuery<kT4SubT3, ClkNpDfxDelay>(unit, port, readClear, out);
}
uint32_t FWM_SRV_CLK_GetPtpPktStat(uint32_t unit, uint32_t port, uint32_t readClear, ClkPtpPktStat *out) {
  return readClearQuery<kPktStat, ClkNpPktStat>(unit, port, readClear, out);
}

}  // extern "C"

FWMCLK_EXPORT_DEFINED(FWMCLK_EXPORTS_SERVICE_QUERY)
