// What the keeper tells the run about time: each engine's TE sample, each
// servo adjustment and change of state as records of their own kind, and the
// verdict on each engine at the end.
#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "fwmsim/clock.hpp"
#include "fwmsim/engine/engine.hpp"
#include "fwmtools/timing/te.hpp"
#include "keeper.hpp"

namespace clksim {

namespace {

using fwmtools::timing::CurvePoint;

FieldValue number(std::string name, double v, int decimals = 0) {
  return {std::move(name), fmt::format("{:.{}f}", v, decimals), nlohmann::json(v).dump()};
}
FieldValue integer(std::string name, int64_t v) { return {std::move(name), std::to_string(v), std::to_string(v)}; }
FieldValue word(std::string name, std::string v) { return {std::move(name), v, nlohmann::json(v).dump()}; }

// "1 s 2.5, 10 s 3.1" and [[1, 2.5], [10, 3.1]].
FieldValue curve(std::string name, const std::vector<CurvePoint> &points, std::string *text) {
  nlohmann::json j = nlohmann::json::array();
  for (const CurvePoint &p : points) {
    *text += fmt::format("{}{:g} s {:.1f}", j.empty() ? "" : ", ", p.tauS, p.ns);
    j.push_back({p.tauS, p.ns});
  }
  return {std::move(name), *text, j.dump()};
}

}  // namespace

void Timekeeper::sampleTe(int64_t missed) {
  for (auto &[unit, series] : te_) {
    const int64_t te = fwmsim::timeError(unit);
    series.insert(series.end(), static_cast<size_t>(missed + 1), static_cast<double>(te));
    say_(TraceKind::TeSample, fmt::format("TE of unit {}: {} ns", unit, te),
         {integer("unit", unit), integer("te_ns", te)});
  }
}

void Timekeeper::tellState(const Servo &s, fwmtools::timing::ServoState to, const std::string &how) {
  const uint32_t unit = s.setup->unit;
  say_(TraceKind::ServoState, fmt::format("servo {}:{} {}{}", unit, s.port, fwmtools::timing::servoStateName(to), how),
       {integer("unit", unit), word("servo", fmt::format("{}:{}", unit, s.port)),
        word("servo_state", fwmtools::timing::servoStateName(to)), integer("te_ns", fwmsim::timeError(unit))});
}

void Timekeeper::tellAdjust(const Servo &s, const fwmtools::timing::ServoOutput &out) {
  std::vector<FieldValue> f{integer("unit", s.setup->unit), word("servo", fmt::format("{}:{}", s.setup->unit, s.port))};
  std::string text = fmt::format("servo {}:{}", s.setup->unit, s.port);
  if (s.offsetNs) {
    f.push_back(integer("offset_ns", *s.offsetNs));
    text += fmt::format(" offset {} ns:", *s.offsetNs);
  }
  if (out.stepNs != 0) {
    f.push_back(integer("step_ns", out.stepNs));
    text += fmt::format(" step {} ns,", out.stepNs);
  }
  f.push_back(number("freq_ppb", out.freqPpb, 3));
  text += fmt::format(" frequency {:+.3f} ppb", out.freqPpb);
  say_(TraceKind::ServoAdjust, std::move(text), std::move(f));
}

std::vector<fwmtools::timing::EngineTe> Timekeeper::finish() {
  fwmtools::timing::TeOptions opt;
  opt.lockThresholdNs = setup_.te.lockThresholdNs;
  opt.settleS = setup_.te.settleS;
  const double dtS = static_cast<double>(setup_.te.sampleNs) / 1e9;
  std::vector<fwmtools::timing::EngineTe> judged;
  for (auto &[unit, series] : te_) {
    fwmtools::timing::TeSeries ts{dtS, dtS, std::move(series)};
    fwmtools::timing::TeResult r;
    try {
      r = fwmtools::timing::analyse(ts, opt);
    } catch (const std::invalid_argument &e) {
      note(fmt::format("time error of unit {}: not judged: {}", unit, e.what()));
      continue;
    }
    std::string lock = r.lockTimeS ? fmt::format("locked after {:.1f} s", *r.lockTimeS) : "never locked";
    std::string mtie, tdev, classes;
    std::vector<FieldValue> f{integer("unit", unit),
                              number("window_from_s", r.windowStartS, 3),
                              number("window_to_s", r.windowEndS, 3),
                              number("max_te_ns", r.maxAbsTeNs, 1),
                              number("cte_ns", r.cteNs, 1),
                              curve("mtie_ns", r.mtie, &mtie),
                              curve("tdev_ns", r.tdev, &tdev)};
    if (r.lockTimeS) f.insert(f.begin() + 1, number("lock_s", *r.lockTimeS, 3));  // none: never locked
    nlohmann::json verdicts = nlohmann::json::object();
    for (const auto &v : r.verdicts) {
      std::string missed = fmt::format("{}{}{}{}", v.maxTe ? "" : " max|TE|", v.cte ? "" : " cTE",
                                       v.mtie ? "" : " MTIE", v.tdev ? "" : " TDEV");
      classes += fmt::format("{}{} {}", classes.empty() ? "" : ", ", v.name,
                             v.met() ? "met" : "missed (" + missed.substr(1) + ")");
      verdicts[std::string(1, v.name)] = {
          {"met", v.met()}, {"max_te", v.maxTe}, {"cte", v.cte}, {"mtie", v.mtie}, {"tdev", v.tdev}};
    }
    f.push_back({"classes", classes, verdicts.dump()});
    f.push_back(word("class", r.bestClass));
    say_(TraceKind::TeJudged,
         fmt::format("time error of unit {}: {}; from {:.0f} s to {:.0f} s max|TE| {:.0f} ns, cTE {:.0f} ns, "
                     "class met: {}\ndTE_L MTIE (ns) at {}\ndTE_L TDEV (ns) at {}\nclasses from {:.0f} s to "
                     "{:.0f} s: {}",
                     unit, lock, r.windowStartS, r.windowEndS, r.maxAbsTeNs, r.cteNs, r.bestClass,
                     mtie.empty() ? "none" : mtie, tdev.empty() ? "none" : tdev, r.windowStartS, r.windowEndS, classes),
         std::move(f));
    judged.push_back({fmt::format("unit {}", unit), std::move(ts), std::move(r)});
  }
  return judged;
}

}  // namespace clksim
