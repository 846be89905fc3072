// The service as its callers can drive it, in any order: the fifteen
// operations with any arguments and records (null only where the library
// refuses null), NP entries, time passing, received announces, alarms, and
// failures the platform could really answer. The board starts once; every
// input goes on from where the last one left it.
#include <cstring>
#include <list>
#include <memory>

#include "fwmclk/np.h"
#include "fwmsim/faults.hpp"
#include "loader.hpp"
#include "runner.hpp"

namespace {

struct Input {
  const uint8_t *p;
  size_t n;
  uint32_t take(size_t width) {
    uint32_t v = 0;
    for (size_t i = 0; i < width && n > 0; ++i, ++p, --n) v |= uint32_t{*p} << (8 * i);
    return v;
  }
  void fill(uint8_t *out, size_t len) {
    size_t k = std::min(len, n);
    std::memcpy(out, p, k);
    p += k, n -= k;
  }
  // Mostly the ports a card has, sometimes any word.
  uint32_t place() { return take(1) & 0x80 ? take(4) : take(1) % 8; }
};

using NpSet3 = int32_t (*)(uint32_t, uint32_t, uint32_t);
using NpSet4 = int32_t (*)(uint32_t, uint32_t, uint32_t, uint32_t);
constexpr NpSet3 kNp3[] = {CLK_NP_1588_SetSsmRxEnable,       CLK_NP_1588_SetPtpState,  CLK_NP_1588_SetEncapFlagField,
                           CLK_NP_1588_SetEncapDomainNumber, CLK_NP_1588_SetEncapDscp, CLK_NP_1588_SetEncapVlan,
                           CLK_NP_1588_SetEncapUdpSport};
constexpr NpSet4 kNp4[] = {CLK_NP_1588_SetPtpCtrl,           CLK_NP_1588_SetEncapDaSel,     CLK_NP_1588_SetEncapDipSel,
                           CLK_NP_1588_SetEncapFlagFieldSel, CLK_NP_1588_SetEncapDip,       CLK_NP_1588_SetPktTxEn,
                           CLK_NP_1588_SetPktInterval,       CLK_NP_1588_SetAnnounceTimeout};

// A board thread can still be reporting into the recorder's sink as a run
// ends, so a run and its scenario outlive it by many runs; only the last
// kKeptRuns are kept, or a long fuzzing run would grow by every input it tries.
constexpr size_t kKeptRuns = 64;
void run(clksim::Scenario sc, bool fresh) {
  static std::list<std::pair<clksim::Scenario, std::unique_ptr<clksim::Runner>>> runs;
  clksim::RunOptions opt;
  opt.freshBoard = fresh;
  opt.peer = fwmtools::Endpoint{"127.0.0.1", 9};  // nobody listens; sends still succeed
  auto &r = runs.emplace_back(std::move(sc), nullptr);
  r.second = std::make_unique<clksim::Runner>(r.first, opt);
  r.second->run();
  if (runs.size() > kKeptRuns) runs.pop_front();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  auto sc =
      clksim::loadScenario("board: {chipType: 40, engines: 2}\nsteps: [notify: startup, notify: master_ip]\n", "up");
  run(std::get<clksim::Scenario>(std::move(sc)), true);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in{data, size};
  clksim::Scenario sc;
  auto faultables = fwmsim::faultables();
  while (in.n > 0 && sc.steps.size() < 64) {
    clksim::Step s;
    switch (in.take(1) % 8) {
      case 0:
      case 1: {
        auto ops = clksim::operations();
        clksim::Request r;
        r.op = &ops[in.take(1) % ops.size()];
        r.unit = in.place(), r.port = in.place(), r.arg = in.take(4);
        if (r.op->record) r.record.assign(r.op->record->size, 0), in.fill(r.record.data(), r.record.size());
        r.nullRecord = r.op->nullChecked && in.take(1) == 0xFF;
        s.body = std::move(r);
        break;
      }
      case 2:
        s.body = clksim::Advance{in.take(2) % 5000};
        break;
      case 3: {
        clksim::AnnounceReceived a;
        a.unit = in.place(), a.port = in.place();
        in.fill(a.fields.data(), a.fields.size());
        s.body = a;
        break;
      }
      case 4:
        s.body = clksim::AnnounceAlarm{in.place(), in.place(),
                                       in.take(1) & 1 ? clksim::AlarmEvent::Timeout : clksim::AlarmEvent::Cleared};
        break;
      case 5: {
        const auto &f = faultables[in.take(1) % faultables.size()];
        s.body = clksim::Fail{std::string(f.function), fwmsim::typicalFailure(f.failsAs), 1,
                              static_cast<int>(in.take(1) % 4)};
        break;
      }
      case 6:
        (void)kNp3[in.take(1) % std::size(kNp3)](in.place(), in.place(), in.take(4));
        continue;
      default:
        (void)kNp4[in.take(1) % std::size(kNp4)](in.place(), in.place(), in.take(4), in.take(4));
        continue;
    }
    sc.steps.push_back(std::move(s));
  }
  run(std::move(sc), false);
  fwmsim::faults().clear();
  return 0;
}
